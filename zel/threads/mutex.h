// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/threads/kernel_obj.h"
#include "zel/threads/sync_obj.h"
#include <cstdint>

namespace zel {

/// A lock that is owned by a thread, in one process or in several. It reports when its owner has
/// died.
///
/// The owner may lock it again and has to unlock it as often. A name makes it one object for all
/// processes of a user; it exists as long as any of them holds it. When it is free or the caller's
/// own, it costs no system call. Any number of threads may call any member; destruction must not
/// overlap.
/// \code
///     zel::mutex ledger(false, "ledger");
///     if (ledger.lock(1000)) {
///         add_entry();
///         ledger.unlock();
///     }
/// \endcode
class ZEL_API mutex : public sync_obj, public kernel_obj {
public:
    /// Both base classes have one; this class raises that of the locks.
    using exception = sync_obj::exception;

    /// Creates the mutex, or opens an existing one of that name.
    /// \param initially_owned  true if the calling thread owns a new mutex at once. An existing
    ///                         mutex is opened but not locked.
    /// \param name  compared byte by byte, at most 260 bytes; empty for a mutex of this object
    ///              alone.
    /// \throws sync_obj::exception  `failed_to_create`: another kind of object has the name, it is
    ///                              too long, or the host is out of memory or descriptors.
    mutex(bool initially_owned = false, string const & name = "");

    /// Refuses a text as a truth value: the name is the second argument.
    template <typename T, typename... Rest> mutex(T *, Rest const &...) = delete;

    /// Opens a mutex that exists. `get_name()` is then empty.
    /// \param desired_access  `synchronize` of `zel/platform/kernel_objects.h` to lock. Without
    ///                        `synchronize` the wait fails, which `lock()` reports as **true**
    ///                        although nothing was locked.
    /// \param inherit_handle  has no effect: a handle never survives exec, and a forked child has
    ///                        it.
    /// \throws sync_obj::exception  `failed_to_create`: no object or one of another kind has the
    ///                              name.
    mutex(std::uint32_t desired_access, bool inherit_handle, string const & name);

    /// Releases one hold if the calling thread has one.
    ~mutex() override;

    /// Waits until the caller owns the mutex.
    ///
    /// False has two reasons. Either the wait timed out, or the owner ended without unlocking. In
    /// the second case the caller owns the mutex now: it may repair what the owner left half done,
    /// and it has to unlock. If the difference matters, wait with the layer, which tells the two
    /// apart:
    /// \code
    ///     switch (zel::platform::wait_for_single_object(ledger.get_handle(), 1000)) {
    ///     case zel::platform::wait_object_0: break;                 // 0: ours
    ///     case zel::platform::wait_abandoned: repair(); break;      // 128: ours, its owner died
    ///     default: return false;                                    // 258: not ours
    ///     }
    /// \endcode
    /// If the wait fails, the result is **true** although nothing was locked. A wait fails when the
    /// mutex was opened without `synchronize`, and with last error 1450 (`wait_for_single_object`
    /// lists the cases); the layer then returns 0xFFFFFFFF.
    /// \param timeout  milliseconds of the monotonic clock; 0 only tests, 0xFFFFFFFF has no limit.
    /// \throws kernel_obj::exception  `invalid_handle` when a derived class has set the handle to
    ///                                null.
    bool lock(std::uint32_t timeout) override;

    /// Releases one hold.
    /// \returns false when the calling thread has none.
    /// \throws kernel_obj::exception  `invalid_handle`, as above.
    bool unlock() override;
    using sync_obj::unlock;
};

static_assert(sizeof(mutex) == sizeof(kernel_obj) + sizeof(sync_obj));

} // namespace zel
