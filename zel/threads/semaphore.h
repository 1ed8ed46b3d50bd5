// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/threads/kernel_obj.h"
#include "zel/threads/sync_obj.h"
#include <cstdint>

namespace zel {

/// A number of units that threads take and give back, in one process or in several.
///
/// Units have no owner: any thread may give one back. Waiters get units in the order of their
/// arrival. A name makes it one object for all processes of a user; it exists as long as any of
/// them holds it. Any number of threads may call any member; destruction must not overlap.
/// \code
///     zel::semaphore connections(4, 4);
///     zel::single_lock one(connections);   // the fifth waits here
/// \endcode
class ZEL_API semaphore : public sync_obj, public kernel_obj {
public:
    /// Both base classes have one; this class raises that of the locks.
    using exception = sync_obj::exception;

    /// Creates the semaphore, or opens an existing one of that name without changing its counts.
    /// \param initial  units that are free at first, 0 to `maximum`.
    /// \param maximum  1 and up.
    /// \param name     compared byte by byte, at most 260 bytes; empty for a semaphore of this
    ///                 object alone.
    /// \throws sync_obj::exception  `failed_to_create`: counts out of range, another kind of object
    ///                              has the name, it is too long, or the host is out of memory or
    ///                              descriptors.
    semaphore(std::int32_t initial = 1, std::int32_t maximum = 1, string const & name = "");

    /// Opens a semaphore that exists. `get_name()` is then empty.
    /// \param desired_access  rights of `zel/platform/kernel_objects.h`: `synchronize` to lock,
    ///                        `semaphore_modify_state` to unlock. Without `semaphore_modify_state`
    ///                        `unlock` returns false. Without `synchronize` the wait fails, which
    ///                        `lock()` reports as **true** although no unit was taken.
    /// \param inherit_handle  has no effect: a handle never survives exec, and a forked child has
    ///                        it.
    /// \throws sync_obj::exception  `failed_to_create`: no object or one of another kind has the
    ///                              name.
    semaphore(std::uint32_t desired_access, bool inherit_handle, string const & name);

    ~semaphore() override;

    /// Waits for a unit and takes it. The number of waiting threads is not limited, with a name
    /// neither. True is also returned when the wait failed, without the right `synchronize` for
    /// example; to tell the two apart, call `zel::platform::wait_for_single_object(get_handle(),
    /// timeout)`, which returns 0xFFFFFFFF for a failed wait.
    /// \param timeout  milliseconds of the monotonic clock; 0 only tests, 0xFFFFFFFF has no limit.
    /// \returns false when the wait timed out.
    /// \throws kernel_obj::exception  `invalid_handle` when a derived class has set the handle to
    ///                                null.
    bool lock(std::uint32_t timeout) override;

    /// Gives one unit back. False when the maximum would be exceeded.
    bool unlock() override;

    /// Gives `count` units back. Called through a `sync_obj`, the operation with unsigned numbers
    /// is used, which ignores the count and gives one unit back.
    /// \param previous  if not null, receives the number of free units before; unchanged on
    ///                  failure.
    /// \returns false, with nothing changed, when the maximum would be exceeded or `count` is not
    ///          positive.
    /// \throws kernel_obj::exception  `invalid_handle`, as above.
    virtual bool unlock(std::int32_t count, std::int32_t * previous);
    using sync_obj::unlock;
};

static_assert(sizeof(semaphore) == sizeof(kernel_obj) + sizeof(sync_obj));

} // namespace zel
