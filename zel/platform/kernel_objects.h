// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include <cstdint>

namespace zel::platform {

/// Access rights of a handle; a creation gives all of its kind.
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

/// No limit for a wait.
constexpr std::uint32_t infinite = 0xFFFFFFFF;

/// \name Creation
/// A null or empty name makes an object of this process alone. Another name is compared byte by
/// byte, may be up to 260 bytes long, and is one object for all processes of the user that runs
/// them, for as long as any of them holds a handle; a leading `Local\` or `Global\` is dropped.
/// A creation that finds the name opens that object and leaves its state and kind of reset alone.
///
/// The child of a fork has the parent's handles. Those with a name lead to the same objects. An
/// object without one is a copy of the child's own, where nobody waits, and a mutex that any thread
/// of the parent owned is abandoned. An exec drops all handles.
/// \returns a handle for `close_handle`, with last error 183 when the name was there and else 0;
///          null with last error 6 (another kind has the name), 87 (counts), 206 (name too long), 8,
///          1450 (another process is taking the name away and has been stopped for 20 seconds), or
///          what the host refused.
/// @{
ZEL_API void * create_event(bool manual_reset, bool initially_set, char const * name) noexcept;
ZEL_API void * create_mutex(bool initially_owned, char const * name) noexcept;
/// 0 <= initial <= maximum, 0 < maximum.
ZEL_API void * create_semaphore(std::int32_t initial, std::int32_t maximum,
                                char const * name) noexcept;
/// @}

/// \name Opening what exists
/// \param access   the rights that the handle has; an operation that needs more fails (5).
/// \param inherit  has no effect: a handle never outlives exec, and a fork always has it.
/// \returns null with last error 2 (no such name), 6 (another kind), 87 (null name).
/// @{
ZEL_API void * open_event(std::uint32_t access, bool inherit, char const * name) noexcept;
ZEL_API void * open_mutex(std::uint32_t access, bool inherit, char const * name) noexcept;
ZEL_API void * open_semaphore(std::uint32_t access, bool inherit, char const * name) noexcept;
/// @}

/// Lets waiters through. An auto-reset event lets the one through that has waited longest, at once
/// and for good, or stays set for the next; a manual-reset event lets all through and stays set.
/// \returns false with last error 5 or 6.
ZEL_API bool set_event(void * handle) noexcept;

/// Lets those through that wait at this moment (of an auto-reset event the first of them), nobody
/// later, and leaves the event clear.
ZEL_API bool pulse_event(void * handle) noexcept;
ZEL_API bool reset_event(void * handle) noexcept;

/// Gives back one of the calling thread's holds.
/// \returns false with last error 288 when the thread has none.
ZEL_API bool release_mutex(void * handle) noexcept;

/// Adds `count` units. Waiters get theirs in the order of their arrival, and none that comes later
/// gets in between. Of a semaphore with a name, several units that are released while others are
/// may reach waiters before the rest is refused; then the refusal takes as many back from what the
/// others have added.
/// \param previous  if not null, takes the count before; untouched on failure.
/// \returns false, with nothing changed, and last error 298 when the maximum would be exceeded, 87
///          when `count` is not positive.
ZEL_API bool release_semaphore(void * handle, std::int32_t count, std::int32_t * previous) noexcept;

/// Waits for an event, a mutex, a semaphore or a thread's end. What the thread that released did
/// before is visible to the one that is let through. No system call unless it has to sleep.
///
/// Who waits for an event or a semaphore is served in the order of arrival. With a name the order
/// is the kernel's: threads with a real-time priority of the host come first, and a thread that
/// runs a signal's handler or whose process is stopped waits anew, at the end.
///
/// A thread that is suspended meanwhile waits no longer, and again after its resume, for the time
/// that is left until the moment settled at the call. What it was given before belongs to it: a
/// set or a release is not taken back, and the wait is over when the thread is resumed.
/// \param milliseconds  of the monotonic clock; 0 only tests, 0xFFFFFFFF has no limit.
/// \returns 0: the object is the caller's; 128: so is the mutex, whose owner ended without
///          releasing it, told once; 258: the time was over; 0xFFFFFFFF: last error 5 or 6, or
///          1450 beyond 4,294,967,295 holds of one mutex, with more than 16 pid namespaces over a
///          mutex with a name, or where the host keeps no list of a thread's locks. An owner's end
///          is told at once; of a process that is killed while one thread owns more than 2,048
///          mutexes with a name, and to waiters in another pid namespace, within a second.
ZEL_API std::uint32_t wait_for_single_object(void * handle, std::uint32_t milliseconds) noexcept;

/// Gives the handle back. A thread goes on running. A mutex that is owned stays so for others
/// until its thread releases it through another handle or ends. A thread that sleeps in a wait for
/// the object goes on doing so; no other call with the handle may overlap.
/// \returns false with last error 6 when it is no handle.
ZEL_API bool close_handle(void * handle) noexcept;

} // namespace zel::platform
