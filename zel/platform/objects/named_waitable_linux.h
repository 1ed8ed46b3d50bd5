// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include <cstdint>

/// Events and semaphores in memory that processes share; any process may be killed or stopped at
/// any instruction. No lock is used, and the number of waiters is not limited. Callers are inside
/// exactly one `uninterrupted`, and the memory stays mapped during the call. Last errors as in
/// kernel_objects.h.
namespace zel::platform {

struct named_waitable {
    atomic<std::uint64_t> state;
    atomic<std::uint32_t> maximum; // 1 for an event
    atomic<std::uint32_t> manual; // 1 for a manual-reset event
};

/// Initialises an object in memory that is all zero.
void initialize(named_waitable & object, std::uint32_t initial, std::uint32_t maximum,
                bool manual) noexcept;

/// \param until  nanoseconds of the monotonic clock; negative for no limit, 0 only tests.
/// \returns 0, 258 or `wait_stopped` (robust_mutex.h).
std::uint32_t wait_for(named_waitable & object, std::int64_t until) noexcept;

/// \name For events
/// \returns true.
/// @{
bool set(named_waitable & event) noexcept;
bool reset(named_waitable & event) noexcept;
bool pulse(named_waitable & event) noexcept;
/// @}

/// \returns false with last error 298 when the maximum would be exceeded. If several units are
///          released while others release too, some may go to waiters before the rest is refused.
///          The refusal then takes as many units back from the free ones, so that the sum is right.
bool release(named_waitable & semaphore, std::uint32_t count, std::int32_t * previous) noexcept;

} // namespace zel::platform
