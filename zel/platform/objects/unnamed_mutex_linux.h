// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/objects/mutex_word.h"
#include "zel/platform/objects/owned_mutexes_linux.h"
#include "zel/platform/waits/handles.h"
#include <cstdint>

/// Mutexes without a name: the word of mutex_word.h is in the slot's state, the rest in its room.
///
/// The host does not know which mutexes a thread owns. The thread counts them. If the count is not
/// 0 at its end, the thread searches the table of handles once for mutexes with its number. A
/// thread that is terminated may have taken a mutex and not counted it yet, so it always searches.
/// Both run on the ending thread itself, while no other thread can have its number.
///
/// If a handle is closed while threads sleep on the mutex, its slot stays with the kind
/// `closed_mutex`, so that the sleepers still learn of the owner's end. The last sleeper frees the
/// slot.
namespace zel::platform {

struct unnamed_mutex_room {
    atomic<std::uint32_t> more_holds; // of the owner, beyond the first; only the owner uses it
    atomic<std::uint32_t> kept_out;
};
static_assert(sizeof(unnamed_mutex_room) <= sizeof(handle_slot::room));

inline unnamed_mutex_room & mutex_room_of(handle_slot & slot) noexcept
{
    void * const room = slot.room;
    return *static_cast<unnamed_mutex_room *>(room);
}

/// The state of a free mutex with a living handle.
inline std::uint64_t free_state_of(void * handle) noexcept
{
    return std::uint64_t{tag_of(reinterpret_cast<std::uintptr_t>(handle))} << 32;
}

/// \name Fast paths, of one exchange each
/// The expected state is computed from the handle, because loading it first would wait for the last
/// exchange. So the exchange fails for a dead handle, and for an owner with more than one hold.
/// \param self  `this_thread.owner_number`
/// \returns false when nothing was done: call `wait_for_unnamed_mutex` or `release_unnamed_mutex`.
/// @{
inline bool take_free_mutex(handle_slot & slot, void * handle, std::uint32_t self) noexcept
{
    std::uint64_t expected = free_state_of(handle);
    if (self == 0
        || !slot.state.compare_exchange_strong(expected, expected | self, std::memory_order_acquire,
                                               std::memory_order_relaxed)) {
        return false;
    }
    count_hold(1); // not before the exchange, which would wait for this store
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

/// At the calling thread's end: abandons the mutexes that it owns.
/// \param self  the thread's `owner_number`.
void abandon_unnamed_mutexes(std::uint32_t self) noexcept;

/// In the child after a fork, for a slot with a living handle: abandons a mutex that a thread of
/// the parent owned.
void abandon_parents_mutex(handle_slot & slot) noexcept;

} // namespace zel::platform
