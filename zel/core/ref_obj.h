// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/full_barrier.h"
#include "zel/core/object.h"
#include <atomic>
#include <cstdint>

namespace zel {

/// The root of every object that is shared through `auto_ptr`: it counts its holders.
///
/// The count starts at 0, which means that the object has no holder: a local or a member may stay
/// at 0 all its life. From the first holder on the count controls the lifetime: the object must
/// have come from `new`, and the release that reaches 0 deletes it, on the releasing thread. A
/// derived class that allows copying gives the copy a count of 0; the count is never copied.
///
/// Any number of threads may change the count at once: each operation is one atomic step with a
/// full barrier. When several threads release, exactly one deletes.
class ZEL_API ref_obj : public object {
public:
    ref_obj() noexcept = default;
    ~ref_obj() override = default;

    /// Takes a reference.
    /// \returns the count after it.
    std::uint32_t inc_ref() noexcept
    {
        std::uint32_t const before = count_.fetch_add(1);
        complete_full_barrier();
        return before + 1;
    }

    /// Gives a reference back, and deletes the object if it was the last. If the count was 0,
    /// nothing is deleted and the count wraps to 0xFFFFFFFF.
    /// \returns the count after it. Other threads may have changed the count or deleted the object
    ///          by then.
    std::uint32_t dec_ref() noexcept
    {
        std::uint32_t const left = count_.fetch_sub(1) - 1;
        complete_full_barrier();
        if (left == 0) {
            delete this;
        }
        return left;
    }

    /// The number of references at this moment. If other threads hold some, it may be out of date
    /// when this returns.
    std::uint32_t ref_count() const noexcept { return count_.load(std::memory_order_relaxed); }

    /// Takes an `inc_ref` back and never deletes, whatever the count is then: for a step that
    /// failed, or for a reference that another count has taken over.
    void undo_inc_ref() noexcept
    {
        count_.fetch_sub(1);
        complete_full_barrier();
    }

private:
    std::atomic<std::uint32_t> count_{0};
};

} // namespace zel
