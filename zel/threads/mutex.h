// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/threads/kernel_obj.h"
#include "zel/threads/sync_obj.h"
#include <cstdint>

namespace zel {

/// A lock that belongs to a thread, between threads or between processes, and that tells when its
/// owner has died.
///
/// The owner may take it again and has to give it back as often. A name makes it one object for all
/// processes of a user, which lasts as long as any of them holds it. Free, or the caller's own, it
/// costs no system call. Any number of threads may call any member; destruction must not overlap.
/// \code
///     zel::mutex ledger(false, "ledger");
///     if (ledger.lock(1000)) {
///         add_entry();
///         ledger.unlock();
///     }
/// \endcode
class ZEL_API mutex : public sync_obj, public kernel_obj {
public:
    /// Both bases have one; this class raises the one of the locks.
    using exception = sync_obj::exception;

    /// Creates the mutex, or joins the one of that name.
    /// \param initially_owned  whether a mutex that is new is the calling thread's at once; one
    ///                         that was there is joined without being taken.
    /// \param name  compared byte by byte, at most 260 bytes; empty for a mutex of this object
    ///              alone.
    /// \throws sync_obj::exception  `failed_to_create`: another kind of object has the name, it is
    ///                              too long, or the host is out of memory or descriptors.
    mutex(bool initially_owned = false, string const & name = "");

    /// A text is no truth value: the name comes second.
    template <typename T, typename... Rest> mutex(T *, Rest const &...) = delete;

    /// Opens a mutex that exists. `get_name()` is then empty.
    /// \param desired_access  `synchronize` of `zel/platform/kernel_objects.h` to lock.
    ///                        Without `synchronize` the wait fails, which `lock()` reports as true
    ///                        although nothing was locked.
    /// \param inherit_handle  has no effect: a handle never outlives exec, a forked child has it.
    /// \throws sync_obj::exception  `failed_to_create`: nothing, or another kind, has the name.
    mutex(std::uint32_t desired_access, bool inherit_handle, string const & name);

    /// Gives back one hold, should the calling thread have one.
    ~mutex() override;

    /// Waits until the mutex is the caller's.
    ///
    /// False has two reasons. Either the time was over, or the owner ended without giving the mutex
    /// back: then the caller owns it, may look after what the owner left half done, and has to
    /// unlock. Where that matters, wait with the layer, which tells the two apart:
    /// \code
    ///     switch (zel::platform::wait_for_single_object(ledger.get_handle(), 1000)) {
    ///     case zel::platform::wait_object_0: break;                 // 0: ours
    ///     case zel::platform::wait_abandoned: repair(); break;      // 128: ours, its owner died
    ///     default: return false;                                    // 258: not ours
    ///     }
    /// \endcode
    /// A wait that failed gives true although nothing was locked: of a mutex that was opened without
    /// `synchronize`, or with last error 1450; the layer tells that apart too (0xFFFFFFFF).
    /// \param timeout  milliseconds of the monotonic clock; 0 only tests, 0xFFFFFFFF has no limit.
    /// \throws kernel_obj::exception  `invalid_handle` when a derived class took the handle away.
    bool lock(std::uint32_t timeout) override;

    /// Gives back one hold.
    /// \returns false when the calling thread has none.
    /// \throws kernel_obj::exception  `invalid_handle`, as above.
    bool unlock() override;
    using sync_obj::unlock;
};

static_assert(sizeof(mutex) == sizeof(kernel_obj) + sizeof(sync_obj));

} // namespace zel
