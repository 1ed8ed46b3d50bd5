// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/threads/kernel_obj.h"
#include "zel/threads/sync_obj.h"
#include <cstdint>

namespace zel {

/// A flag that threads wait for, in one process or in several.
///
/// An auto-reset event lets one waiter through and is then clear again; a manual-reset event lets
/// every waiter through until `reset()`. A name makes it one object for all processes of a user; it
/// exists as long as any of them holds it. What a thread did before `set()` is visible to the
/// thread that is let through. Any number of threads may call any member; destruction must not
/// overlap.
/// \code
///     zel::event ready;                    // clear, auto-reset; another thread calls ready.set()
///     if (!ready.lock(500)) { give_up(); }
/// \endcode
class ZEL_API event : public kernel_obj, public sync_obj {
public:
    /// Both base classes have one; this class raises that of the locks.
    using exception = sync_obj::exception;

    /// Creates the event, or opens an existing one of that name without changing its state.
    /// \param name  compared byte by byte, at most 260 bytes; null or empty for an event of this
    ///              object alone.
    /// \throws sync_obj::exception  `failed_to_create`: another kind of object has the name, it is
    ///                              too long, or the host is out of memory or descriptors.
    event(bool initially_set = false, bool manual_reset = false, char const * name = nullptr);

    /// Refuses a text as a truth value: the name is the third argument.
    template <typename T, typename... Rest> event(T *, Rest const &...) = delete;
    template <typename T, typename... Rest> event(bool, T *, Rest const &...) = delete;

    /// Opens an event that exists. `get_name()` is then empty.
    /// \param desired_access  rights of `zel/platform/kernel_objects.h`: `synchronize` to lock,
    ///                        `event_modify_state` to set, pulse and reset. Without
    ///                        `event_modify_state` these return false. Without `synchronize` the
    ///                        wait fails, which `lock()` reports as **true** although the event did
    ///                        not let the thread through.
    /// \param inherit_handle  has no effect: a handle never survives exec, and a forked child has
    ///                        it.
    /// \throws sync_obj::exception  `failed_to_create`: no object or one of another kind has the
    ///                              name, or it is null.
    event(std::uint32_t desired_access, bool inherit_handle, char const * name);

    ~event() override;

    /// Waits until the event lets this thread through. The number of waiting threads is not
    /// limited, with a name neither. Of the threads that wait for an auto-reset event, the one that
    /// has waited longest goes first. A thread that is suspended meanwhile waits anew after its
    /// resume. True is also returned when the wait failed, without the right `synchronize` for
    /// example; to tell the two apart, call `zel::platform::wait_for_single_object(get_handle(),
    /// timeout)`, which returns 0xFFFFFFFF for a failed wait.
    /// \param timeout  milliseconds of the monotonic clock; 0 only tests, 0xFFFFFFFF has no limit.
    /// \returns false when the wait timed out.
    /// \throws kernel_obj::exception  `invalid_handle` when a derived class has set the handle to
    ///                                null.
    bool lock(std::uint32_t timeout) override;

    /// Does nothing: an event is not unlocked but set or reset.
    /// \returns true.
    bool unlock() override;
    using sync_obj::unlock;

    /// Sets the event: lets all waiters through until `reset()`, or one, which may also come later.
    /// \returns false when the handle lacks the right.
    bool set() noexcept;
    /// Lets the present waiters through, or one of them, and leaves the event clear.
    /// \returns false when the handle lacks the right.
    bool pulse() noexcept;
    /// Clears the event.
    /// \returns false when the handle lacks the right.
    bool reset() noexcept;
};

static_assert(sizeof(event) == sizeof(kernel_obj) + sizeof(sync_obj));

} // namespace zel
