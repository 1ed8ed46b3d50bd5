// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/kernel_objects.h"
#include "zel/platform/objects/named_handles_linux.h"
#include "zel/platform/objects/process_life_linux.h"
#include "zel/platform/objects/robust_mutex_linux.h"
#include "zel/platform/waits/handles.h"
#include "zel/platform/waits/this_thread_linux.h"
#include <cstddef>
#include <cstdint>

/// Mutexes in memory that processes share. A handle's slot holds where this handle has the object
/// mapped.
namespace zel::platform {

struct named_mutex {
    atomic<std::uint64_t> state;
    std::byte unused[robust_word_distance - sizeof(std::uint64_t)];
    mutex_ownership ownership;
};
static_assert(offsetof(named_mutex, ownership) == robust_word_distance);

inline robust_mutex mutex_in(named_memory const & memory, std::uint64_t process) noexcept
{
    auto & object = *static_cast<named_mutex *>(memory.block);
    return {object.state, object.ownership, process};
}

/// \name What is one exchange
/// \returns false when nothing was done: the function of the same job sees to it.
/// @{
inline bool take_free_named_mutex(handle_slot & slot) noexcept
{
    std::uint64_t const process = known_process_mark.load(std::memory_order_relaxed);
    robust_list * const list = robust_list::own_if_known();
    std::uint32_t const self = this_thread.id;
    if (process == 0 || list == nullptr || self == 0
        || (slot.access.load(std::memory_order_relaxed) & synchronize) == 0) {
        return false;
    }
    robust_mutex const mutex = mutex_in(memory_in(slot), process);
    std::uint64_t state = mutex.state.load(std::memory_order_acquire);
    return word_of(state) == 0 && mutex.take(*list, self, state);
}

inline bool give_back_named_mutex(handle_slot & slot) noexcept
{
    std::uint64_t const process = known_process_mark.load(std::memory_order_relaxed);
    robust_list * const list = robust_list::own_if_known();
    std::uint32_t const self = this_thread.id;
    if (process == 0 || list == nullptr || self == 0) {
        return false;
    }
    robust_mutex const mutex = mutex_in(memory_in(slot), process);
    std::uint64_t const state = mutex.state.load(std::memory_order_relaxed);
    return mutex.is_mine(self, word_of(state)) && mutex.give_back(*list, state);
}
/// @}

/// What a creation puts into the block; the creator has it before anybody else can find it.
/// \param initially_owned  a `bool`.
void initialize_named_mutex(void * block, void const * initially_owned) noexcept;
/// The opposite, when another process was quicker.
void withdraw_named_mutex(void * block, void const * initially_owned) noexcept;

/// Results and last errors as in kernel_objects.h.
std::uint32_t wait_for_named_mutex(handle_slot & slot, void * handle,
                                   std::uint32_t milliseconds) noexcept;
bool release_named_mutex(handle_slot & slot, void * handle) noexcept;

/// A mutex that a thread of this process owns keeps its memory until that has released it or ended:
/// the kernel follows the owner's list into it. Its name is given back at once.
bool close_named_mutex(handle_slot & slot, void * handle) noexcept;

/// Frees what `close_named_mutex` had to keep and nobody needs any more.
void free_closed_mutexes() noexcept;

/// In the child after a fork, where no thread owns one.
void forget_owners_of_closed_mutexes() noexcept;

} // namespace zel::platform
