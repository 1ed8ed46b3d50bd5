// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/waits/handles.h"
#include <cstdint>

/// Events and semaphores without a name: the word is in the slot's state, the queue of waiters in
/// its room. The handles are of the kinds auto_event, manual_event and semaphore. Results and last
/// errors as in kernel_objects.h.
namespace zel::platform {

/// \param maximum  of a semaphore; 1 for an event.
/// \returns null with the last error of `take_slot`.
void * create_unnamed(handle_kind kind, std::uint32_t initial, std::uint32_t maximum) noexcept;

/// The maximum of a semaphore, the first member of the room. Meaningless when the handle is not
/// alive.
inline std::uint32_t maximum_of(handle_slot const & slot) noexcept
{
    void const * const room = slot.room;
    return static_cast<atomic<std::uint32_t> const *>(room)->load(std::memory_order_relaxed);
}

/// \name Fast paths, of one exchange each
/// \returns false when nothing was done: call the slow path, the function below for the same
///          operation.
/// @{
/// \param state  the slot's state, just loaded.
inline bool take_free_unit(handle_slot & slot, void * handle, std::uint64_t state) noexcept
{
    return is_alive(state, handle) && word_of(state) - 1 < 0x7FFFFFFF
        && slot.state.compare_exchange_strong(state, state - 1, std::memory_order_acquire,
                                              std::memory_order_relaxed);
}

inline bool put_down(handle_slot & slot, void * handle, std::uint32_t count,
                     std::uint32_t maximum) noexcept
{
    // The release pairs with the acquire of the thread that takes the unit. It also keeps the
    // caller's load of `maximum` before the exchange: had the load read what the slot's next user
    // wrote, the handle would have ended before, and the exchange would fail.
    std::uint64_t state = slot.state.load(std::memory_order_relaxed);
    std::uint64_t const after = word_of(state) + std::uint64_t{count};
    return is_alive(state, handle) && after <= maximum
        && slot.state.compare_exchange_strong(state, state + count, std::memory_order_release,
                                              std::memory_order_relaxed);
}

/// The fast path of releasing one unit of a semaphore, for callers to inline.
/// \param handle  any value.
inline bool put_down_one(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    return slot != nullptr && kind_of(handle) == handle_kind::semaphore
        && put_down(*slot, handle, 1, maximum_of(*slot));
}
/// @}

std::uint32_t wait_for_unnamed(handle_slot & slot, void * handle,
                               std::uint32_t milliseconds) noexcept;

bool set_unnamed_event(handle_slot & slot, void * handle) noexcept;
bool reset_unnamed_event(handle_slot & slot, void * handle) noexcept;
bool pulse_unnamed_event(handle_slot & slot, void * handle) noexcept;

/// \param count  positive.
bool release_unnamed_semaphore(handle_slot & slot, void * handle, std::uint32_t count,
                               std::int32_t * previous) noexcept;

/// In the child after a fork, for a slot with a living handle: empties the queue, because no waiter
/// exists there.
void forget_waiters(handle_slot & slot) noexcept;

} // namespace zel::platform
