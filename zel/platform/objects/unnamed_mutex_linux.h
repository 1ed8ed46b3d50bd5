// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/objects/mutex_word.h"
#include "zel/platform/objects/owned_mutexes_linux.h"
#include "zel/platform/waits/handles.h"
#include <cstdint>

/// Mutexes without a name: the word of mutex_word.h in the slot's state, the rest in its room.
///
/// Nothing of the host's is told what a thread owns. The thread counts it, and at its end, if the
/// count is not 0, looks the table of handles through once for mutexes that bear its number. A thread
/// that is terminated may be between the taking and the counting, and looks in any case. Either does
/// that itself, so that nobody else can have the number yet.
///
/// A handle that is closed while threads sleep on the mutex leaves a slot of the kind
/// `closed_mutex`: its owner's end is told to them all the same. With the last of them the slot is
/// free.
namespace zel::platform {

struct unnamed_mutex_room {
    atomic<std::uint32_t> more_holds; // of the owner, beyond the first; the owner's alone
    atomic<std::uint32_t> kept_out;
};
static_assert(sizeof(unnamed_mutex_room) <= sizeof(handle_slot::room));

inline unnamed_mutex_room & mutex_room_of(handle_slot & slot) noexcept
{
    void * const room = slot.room;
    return *static_cast<unnamed_mutex_room *>(room);
}

/// The state of a mutex that is free, of a living handle.
inline std::uint64_t free_state_of(void * handle) noexcept
{
    return std::uint64_t{tag_of(reinterpret_cast<std::uintptr_t>(handle))} << 32;
}

/// \name What is one exchange
/// What it expects follows from the handle: a load of the state before would wait for the last
/// exchange. So a handle that is dead, or of an owner that has taken it more than once, fails.
/// \param self  `this_thread.owner_number`
/// \returns false when nothing was done: the function of the same job sees to it.
/// @{
inline bool take_free_mutex(handle_slot & slot, void * handle, std::uint32_t self) noexcept
{
    std::uint64_t expected = free_state_of(handle);
    if (self == 0
        || !slot.state.compare_exchange_strong(expected, expected | self, std::memory_order_acquire,
                                               std::memory_order_relaxed)) {
        return false;
    }
    count_hold(1); // not in front: an exchange waits for all stores before it
    return true;
}

inline bool give_back_mutex(handle_slot & slot, void * handle, std::uint32_t self) noexcept
{
    std::uint64_t expected = free_state_of(handle) | self;
    if (self == 0 || mutex_room_of(slot).more_holds.load(std::memory_order_relaxed) != 0
        || !slot.state.compare_exchange_strong(expected, free_state_of(handle),
                                               std::memory_order_release,
                                               std::memory_order_relaxed)) {
        return false;
    }
    count_hold(one_hold_less);
    return true;
}
/// @}

/// \returns a handle; null with the last error of `take_slot`, or 8.
void * create_unnamed_mutex(bool initially_owned) noexcept;

/// Results and last errors as in kernel_objects.h.
std::uint32_t wait_for_unnamed_mutex(handle_slot & slot, void * handle,
                                     std::uint32_t milliseconds) noexcept;
bool release_unnamed_mutex(handle_slot & slot, void * handle) noexcept;
bool close_unnamed_mutex(handle_slot & slot, void * handle) noexcept;

/// At the calling thread's end: abandons what it owns.
/// \param self  the number that it had as an owner.
void abandon_unnamed_mutexes(std::uint32_t self) noexcept;

/// In the child after a fork, for a slot with a living handle: no thread of the parent is here.
void abandon_parents_mutex(handle_slot & slot) noexcept;

} // namespace zel::platform
