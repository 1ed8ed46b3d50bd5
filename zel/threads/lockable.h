// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"

namespace zel {

class sync_obj;

/// Lets the guards of the standard library hold a lock of this one: `std::lock_guard`,
/// `std::unique_lock`, and `std::scoped_lock` for several at once without a deadlock.
///
/// It refers to the object, which has to outlive it, and has no state of its own: any number of
/// threads may use one, or each its own.
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

    /// Waits without limit until the object is the caller's.
    /// \throws sync_obj::exception  `failed_to_lock` when it is not: also when the owner of a mutex
    ///                              has died. Then that is told here once, and the mutex is free.
    /// \throws kernel_obj::exception  as the object's own `lock` does.
    void lock();

    /// Takes the object when that needs no wait.
    /// \returns whether it did.
    /// \throws sync_obj::exception  `failed_to_lock` when the owner of a mutex has died, as above.
    bool try_lock();

    /// Gives the object back.
    void unlock();

private:
    sync_obj * object_;
};

static_assert(sizeof(lockable) == sizeof(void *));

} // namespace zel
