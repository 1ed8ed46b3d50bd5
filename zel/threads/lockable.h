// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"

namespace zel {

class sync_obj;

/// Lets guards of the standard library hold a lock of this library: `std::lock_guard`,
/// `std::unique_lock`, and `std::scoped_lock` for several locks without a deadlock.
///
/// It refers to the lock, which has to outlive it, and has no state of its own: several threads may
/// share one or use one each.
/// \code
///     zel::lockable ours(section), theirs(mutex);
///     std::scoped_lock const both(ours, theirs);
/// \endcode
class ZEL_API lockable {
public:
    /// \param object  the lock to hold; it is not locked here.
    explicit lockable(sync_obj & object) noexcept
        : object_(&object)
    {
    }

    /// Waits without limit until the caller owns the lock.
    /// \throws sync_obj::exception  `failed_to_lock` when it cannot be locked. Also when the owner
    ///                              of a mutex has died: this is reported once, and the mutex is
    ///                              then free.
    /// \throws kernel_obj::exception  as the object's own `lock` does.
    void lock();

    /// Takes the lock if that needs no wait.
    /// \returns true if it did.
    /// \throws sync_obj::exception  `failed_to_lock` when the owner of a mutex has died, as above.
    bool try_lock();

    /// Unlocks it.
    void unlock();

private:
    sync_obj * object_;
};

static_assert(sizeof(lockable) == sizeof(void *));

} // namespace zel
