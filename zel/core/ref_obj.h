// SPDX-License-Identifier: MIT
#pragma once

#include "zel/core/object.h"
#include <atomic>
#include <cstdint>

namespace zel {

/// The root of every object that is shared through `auto_ptr`: it counts its holders.
///
/// The count starts at 0, which means that nobody holds the object: a local or a member may stay
/// like that all its life. From the first holder on the count decides, the object must have come
/// from `new`, and the release that reaches 0 deletes it on the releasing thread. A derived class
/// that allows copying gives the copy a count of 0; the count never travels with the value.
///
/// Any number of threads may count one object at once: each operation is one atomic step with a
/// full barrier, and of several that release exactly one deletes.
class ZEL_API ref_obj : public object {
public:
    ref_obj() noexcept = default;
    ~ref_obj() override = default;

    /// Takes a reference.
    /// \returns the count after it.
    std::uint32_t inc_ref() noexcept { return count_.fetch_add(1) + 1; }

    /// Gives a reference back, and deletes the object when it was the last. On a count of 0 nothing
    /// is deleted and the count wraps to 0xFFFFFFFF.
    /// \returns the count after it; by then other threads may have changed it, or the object.
    std::uint32_t dec_ref() noexcept
    {
        std::uint32_t const left = count_.fetch_sub(1) - 1;
        if (left == 0) {
            delete this;
        }
        return left;
    }

    /// The number of references at this moment; out of date as soon as other threads hold some.
    std::uint32_t ref_count() const noexcept { return count_.load(std::memory_order_relaxed); }

    /// Takes an `inc_ref` back and never deletes, whatever is left: for a step that failed, or for a
    /// reference that lives on in another count.
    void undo_inc_ref() noexcept { count_.fetch_sub(1); }

private:
    std::atomic<std::uint32_t> count_{0};
};

} // namespace zel
