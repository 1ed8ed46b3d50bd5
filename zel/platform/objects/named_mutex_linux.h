// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/kernel_objects.h"
#include "zel/platform/objects/mutex_lanes_linux.h"
#include "zel/platform/objects/named_handles_linux.h"
#include "zel/platform/objects/process_life_linux.h"
#include "zel/platform/waits/handles.h"
#include <cstddef>
#include <cstdint>

/// Operations on named mutexes, which are in memory that processes share, through their handles.
namespace zel::platform {

/// What the slot of a handle stores.
struct named_mutex_room {
    named_memory memory; // contains a mutex_lanes
    robust_mutex * lane; // of this process's pid namespace
};
static_assert(offsetof(named_mutex_room, memory) == 0); // named_handles_linux.h relies on it
static_assert(sizeof(named_mutex_room) <= sizeof(handle_slot::room));
// In the cache line of the slot's state, which waiting threads do not change.
static_assert(offsetof(handle_slot, room) + offsetof(named_mutex_room, lane) < 64);

inline robust_mutex & lane_in(handle_slot & slot) noexcept
{
    void * const room = slot.room;
    return *static_cast<named_mutex_room *>(room)->lane;
}

/// \name Fast paths, of one exchange each
/// \returns false when nothing was done: call the slow path, `wait_for_named_mutex` or
///          `release_named_mutex`.
/// @{

/// The calling thread, with the parts that it has not determined yet left null or 0. In a forked
/// child, another thread may just have determined the mark and chosen the lanes of all handles: the
/// acquire keeps the caller from reading the lane of a handle before that.
inline robust_caller known_caller() noexcept
{
    return {robust_list::own_if_known(), this_thread.owner_number,
            known_process_mark.load(std::memory_order_acquire)};
}

inline bool is_known(robust_caller const & caller) noexcept
{
    return caller.list != nullptr && caller.self != 0 && caller.process != 0;
}

/// \param slot  of a handle that was alive.
/// \returns true even if another namespace has just started to use the mutex: check `crossed`.
[[gnu::always_inline]] inline bool take_free_named_mutex(handle_slot & slot) noexcept
{
    robust_caller const caller = known_caller();
    if (!is_known(caller) || (slot.access.load(std::memory_order_relaxed) & synchronize) == 0) {
        return false;
    }
    robust_mutex & lane = lane_in(slot);
    if (lane.crossed.load(std::memory_order_relaxed) != 0
        || !take_free(lane, caller, lane.state.load(std::memory_order_acquire))) {
        return false;
    }
    return true;
}

/// \param slot  of a handle that was alive.
[[gnu::always_inline]] inline bool give_back_named_mutex(handle_slot & slot) noexcept
{
    robust_caller const caller = known_caller();
    if (!is_known(caller)) {
        return false;
    }
    robust_mutex & lane = lane_in(slot);
    std::uint64_t const state = lane.state.load(std::memory_order_relaxed);
    if (!is_mine(lane, caller, state)) {
        return false;
    }
    atomic<std::uint32_t> & more_holds = lane.ownership.more_holds;
    if (std::uint32_t const more = more_holds.load(std::memory_order_relaxed); more != 0) {
        more_holds.store(more - 1, std::memory_order_relaxed);
        return true;
    }
    return lane.crossed.load(std::memory_order_relaxed) == 0
        && give_back_unwatched(lane, caller, state);
}
/// @}

/// Initialises the block in a creation. If it is initially owned, the creator owns it before other
/// processes can find it.
/// \param initially_owned  a `bool`.
void initialize_named_mutex(void * block, void const * initially_owned) noexcept;
/// Undoes that when another process created the name first.
void withdraw_named_mutex(void * block, void const * initially_owned) noexcept;

/// Finds the lane for a new mapping in the slot, or in a forked child for an old one.
/// \returns false with last error 1450 when too many pid namespaces use the mutex.
bool settle_lane(handle_slot & slot) noexcept;

/// Results and last errors as in kernel_objects.h.
std::uint32_t wait_for_named_mutex(handle_slot & slot, void * handle,
                                   std::uint32_t milliseconds) noexcept;
/// The same after `take_free_named_mutex`, when the mutex turned out to be `crossed`.
std::uint32_t wait_across(handle_slot & slot, void * handle, std::uint32_t milliseconds) noexcept;
bool release_named_mutex(handle_slot & slot, void * handle) noexcept;

/// If a thread of this process owns the mutex, its memory is kept until the thread has released it
/// or ended, because the kernel follows the owner's list into it. The name is given up at once.
bool close_named_mutex(handle_slot & slot, void * handle) noexcept;

/// Frees the memory that `close_named_mutex` had to keep, once no thread needs it.
void free_closed_mutexes() noexcept;

/// At the calling thread's end: abandons the named mutexes that it owns, if they are more than the
/// kernel reports.
void abandon_named_mutexes() noexcept;

/// In the child after a fork, where no thread owns one.
void forget_owners_of_closed_mutexes() noexcept;

} // namespace zel::platform
