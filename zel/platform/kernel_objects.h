// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include <cstdint>

namespace zel::platform {

/// Access rights of a handle. A creation gives all rights of its kind.
enum access_right : std::uint32_t {
    synchronize = 0x00100000, // to wait
    event_modify_state = 2, // to set, reset and pulse
    semaphore_modify_state = 2, // to release
    event_all_access = 0x1F0003,
    mutex_all_access = 0x1F0001,
    semaphore_all_access = 0x1F0003,
};

/// What `wait_for_single_object` returns.
enum wait_result : std::uint32_t {
    wait_object_0 = 0,
    wait_abandoned = 128,
    wait_timeout = 258,
    wait_failed = 0xFFFFFFFF,
};

/// A wait without a time limit.
constexpr std::uint32_t infinite = 0xFFFFFFFF;

/// \name Creation
/// A null or empty name makes an object of this process alone. Any other name is compared byte by
/// byte and may be up to 260 bytes long; a leading `Local\` or `Global\` is dropped. It is one
/// object for all processes of a user, and exists as long as any of them holds a handle. A creation
/// that finds the name opens that object; the object's state and its kind of reset do not change.
///
/// The child of a fork has the parent's handles. Those with a name lead to the same objects. An
/// object without a name is copied for the child: no thread waits for the copy, and a mutex that
/// any thread of the parent owned is abandoned. An exec drops all handles.
/// \returns a handle for `close_handle`, with last error 183 when the name existed and 0 otherwise;
///          null with last error 6 (another kind of object has the name), 87 (invalid counts), 206
///          (name too long), 8 (memory), 1450 (another process is removing the name and has not
///          finished for 20 seconds) or the host's reason.
/// @{
ZEL_API void * create_event(bool manual_reset, bool initially_set, char const * name) noexcept;
ZEL_API void * create_mutex(bool initially_owned, char const * name) noexcept;
/// 0 <= initial <= maximum, 0 < maximum.
ZEL_API void * create_semaphore(std::int32_t initial, std::int32_t maximum,
                                char const * name) noexcept;
/// @}

/// \name Opening what exists
/// \param access   the rights that the handle has; an operation that needs more fails (5).
/// \param inherit  has no effect: a handle never survives exec, and a forked child always has it.
/// \returns null with last error 2 (no such name), 6 (another kind), 87 (null name).
/// @{
ZEL_API void * open_event(std::uint32_t access, bool inherit, char const * name) noexcept;
ZEL_API void * open_mutex(std::uint32_t access, bool inherit, char const * name) noexcept;
ZEL_API void * open_semaphore(std::uint32_t access, bool inherit, char const * name) noexcept;
/// @}

/// Sets an event. An auto-reset event at once lets through the one waiter that has waited longest,
/// or stays set for the next waiter if there is none. A manual-reset event lets all waiters through
/// and stays set.
/// \returns false with last error 5 or 6.
ZEL_API bool set_event(void * handle) noexcept;

/// Lets through the threads that wait at this moment (of an auto-reset event only the first), and
/// leaves the event clear.
ZEL_API bool pulse_event(void * handle) noexcept;
ZEL_API bool reset_event(void * handle) noexcept;

/// Releases one hold of the calling thread.
/// \returns false with last error 288 when the thread has none.
ZEL_API bool release_mutex(void * handle) noexcept;

/// Adds `count` units. Waiters get units in the order of their arrival, and later ones cannot
/// overtake them. If several units of a named semaphore are released while other threads release
/// too, some may reach waiters before the rest is refused; the refusal then takes as many units
/// back from those that the others have added.
/// \param previous  if not null, receives the count before; unchanged on failure.
/// \returns false, with nothing changed, and last error 298 when the maximum would be exceeded, 87
///          when `count` is not positive.
ZEL_API bool release_semaphore(void * handle, std::int32_t count, std::int32_t * previous) noexcept;

/// Waits for an event, a mutex, a semaphore or a thread's end. What the releasing thread did before
/// is visible to the thread that is let through. It makes no system call unless it has to sleep.
///
/// Waiters of events and semaphores are served in the order of arrival, and their number is not
/// limited. With a name the order is the kernel's: threads with a real-time priority of the host
/// come first, and a thread that runs a signal handler, or whose process is stopped, goes to the
/// end of the queue.
///
/// A thread that is suspended during the wait leaves the queue. After its resume it waits again,
/// until the original deadline. A unit that it was given before belongs to it: a set or a release
/// is not undone, and the wait ends when the thread is resumed.
/// \param milliseconds  of the monotonic clock; 0 only tests, 0xFFFFFFFF has no limit.
/// \returns 0: the wait succeeded. 128: it succeeded, and the mutex was abandoned: its owner ended
///          without releasing it; this is reported once. 258: timed out. 0xFFFFFFFF: failed, with
///          last error 5 or 6, or 1450 after 4,294,967,295 holds of one mutex, when more than 16
///          pid namespaces use a named mutex, or when the host keeps no list of a thread's locks.
///          An owner's end is reported at once, with two exceptions, in which it takes up to a
///          second: to waiters in another pid namespace, and when a process is killed while one of
///          its threads owns more than 2,048 named mutexes.
ZEL_API std::uint32_t wait_for_single_object(void * handle, std::uint32_t milliseconds) noexcept;

/// Closes the handle. A thread keeps running. For other handles, an owned mutex stays owned until
/// its thread releases it through another handle or ends. A thread that sleeps in a wait for the
/// object keeps waiting; no other call with the handle may overlap.
/// \returns false with last error 6 when this is not a valid handle.
ZEL_API bool close_handle(void * handle) noexcept;

} // namespace zel::platform
