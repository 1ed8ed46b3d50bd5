// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/handles.h"
#include <cstdint>

/// Events and semaphores without a name: the word in the slot's state, the queue of waiters in its
/// room. The handles are of the kinds auto_event, manual_event and semaphore; results and last
/// errors as in kernel_objects.h.
namespace zel::platform {

/// \param maximum  of a semaphore; 1 for an event.
/// \returns null with the last error of `take_slot`.
void * create_unnamed(handle_kind kind, std::uint32_t initial, std::uint32_t maximum) noexcept;

std::uint32_t wait_for_unnamed(handle_slot & slot, void * handle,
                               std::uint32_t milliseconds) noexcept;

bool set_unnamed_event(handle_slot & slot, void * handle) noexcept;
bool reset_unnamed_event(handle_slot & slot, void * handle) noexcept;
bool pulse_unnamed_event(handle_slot & slot, void * handle) noexcept;

/// \param count  positive.
bool release_unnamed_semaphore(handle_slot & slot, void * handle, std::uint32_t count,
                               std::int32_t * previous) noexcept;

/// In the child after a fork, for a slot with a living handle: nobody waits there.
void forget_waiters(handle_slot & slot) noexcept;

} // namespace zel::platform
