// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/threads/kernel_obj.h"
#include "zel/threads/sync_obj.h"
#include <cstdint>

namespace zel {

/// A number of units that threads take and give back, between threads or between processes.
///
/// A unit belongs to nobody: any thread may give it back. Waiters get theirs in the order of their
/// arrival. A name makes it one object for all processes of a user, which lasts as long as any of
/// them holds it. Any number of threads may call any member; destruction must not overlap.
/// \code
///     zel::semaphore connections(4, 4);
///     zel::single_lock one(connections);   // the fifth waits here
/// \endcode
class ZEL_API semaphore : public sync_obj, public kernel_obj {
public:
    /// Both bases have one; this class raises the one of the locks.
    using exception = sync_obj::exception;

    /// Creates the semaphore, or joins the one of that name and leaves its counts alone.
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
    ///                        `semaphore_modify_state` to unlock; what goes beyond them fails.
    ///                        Without `synchronize` the wait fails, which `lock()` reports as true
    ///                        although no unit was taken.
    /// \param inherit_handle  has no effect: a handle never outlives exec, a forked child has it.
    /// \throws sync_obj::exception  `failed_to_create`: nothing, or another kind, has the name.
    semaphore(std::uint32_t desired_access, bool inherit_handle, string const & name);

    ~semaphore() override;

    /// Waits for a unit and takes it.
    /// \param timeout  milliseconds of the monotonic clock; 0 only tests, 0xFFFFFFFF has no limit.
    /// \returns false when the time was over first.
    /// \throws kernel_obj::exception  `invalid_handle` when a derived class took the handle away.
    bool lock(std::uint32_t timeout) override;

    /// Gives one unit back.
    bool unlock() override;

    /// Gives `count` units back. Through a `sync_obj` a count is ignored and one unit goes back:
    /// that is another operation, with unsigned numbers.
    /// \param previous  if not null, takes the number of free units before; untouched on failure.
    /// \returns false, with nothing changed, when the maximum would be exceeded or `count` is not
    ///          positive.
    /// \throws kernel_obj::exception  `invalid_handle`, as above.
    virtual bool unlock(std::int32_t count, std::int32_t * previous);
    using sync_obj::unlock;
};

static_assert(sizeof(semaphore) == sizeof(kernel_obj) + sizeof(sync_obj));

} // namespace zel
