// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include <cstddef>
#include <cstdint>

#include "zel/platform/objects/robust_list_linux.h"

/// Events and semaphores in memory that processes share, any of which may be killed at any
/// instruction. Nothing is locked. The callers are inside `uninterrupted` once, and the memory
/// stays mapped during the call. Last errors as in kernel_objects.h.
namespace zel::platform {

/// How many threads may wait for one object at a time.
constexpr std::size_t most_named_waiters = 1000;

/// The place of one that waits.
struct alignas(64) named_waiter {
    atomic<std::uint64_t> grant; // what it sleeps on, and above that its ticket
    atomic<std::uint32_t> owner; // its thread's number, by the rules of robust_list.h
    std::byte unused[20];
    robust_node node;
};
static_assert(offsetof(named_waiter, node) - offsetof(named_waiter, owner) == robust_word_distance);
static_assert(sizeof(named_waiter) == 64);

struct named_waitable {
    atomic<std::uint64_t> state;
    atomic<std::uint32_t> maximum; // 1 for an event
    atomic<std::uint32_t> manual; // 1 for an event that stays set
    atomic<std::uint32_t> used; // places of `waiters` that ever were
    named_waiter waiters[most_named_waiters];
};

/// In memory that is all zero.
void initialize(named_waitable & object, std::uint32_t initial, std::uint32_t maximum,
                bool manual) noexcept;

/// \param until  nanoseconds of the monotonic clock; negative for no limit, 0 only tests.
/// \returns 0, 258, `wait_stopped` (robust_mutex.h), or 0xFFFFFFFF with last error 1450 when too
///          many wait.
std::uint32_t wait_for(named_waitable & object, std::int64_t until) noexcept;

bool set(named_waitable & event) noexcept;
bool reset(named_waitable & event) noexcept;
bool pulse(named_waitable & event) noexcept;
bool release(named_waitable & semaphore, std::uint32_t count, std::int32_t * previous) noexcept;

} // namespace zel::platform
