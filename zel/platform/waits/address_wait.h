// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include <cstdint>

namespace zel::platform {

/// Nanoseconds of the monotonic clock.
std::int64_t monotonic_now() noexcept;

/// The moment that lies `milliseconds` ahead; -1, no limit, for 0xFFFFFFFF.
std::int64_t moment_after(std::uint32_t milliseconds) noexcept;

/// Sleeps as long as `word` holds `expected`. Looking and falling asleep are one step: a change
/// followed by a wake cannot slip in between. May return for no reason; look at the word again.
/// \param until   nanoseconds of the monotonic clock; negative for no limit.
/// \param shared  true for a word in memory that other processes map, or that the kernel wakes.
/// \returns false when that moment has come, else true.
bool wait_on_address(atomic<std::uint32_t> const & word, std::uint32_t expected, std::int64_t until,
                     bool shared) noexcept;

/// Wakes up to `count` of those that sleep on `word` with the same `shared`.
/// \returns how many woke.
int wake_address(atomic<std::uint32_t> const & word, int count, bool shared) noexcept;

/// Stores `value` and wakes all that sleep on `word` with the same `shared`, in one step of the
/// kernel: a process that is killed meanwhile has done both or neither.
/// \param value  below 2,048.
void store_and_wake_all(atomic<std::uint32_t> & word, std::uint32_t value, bool shared) noexcept;

/// How `wait_interruptibly` came back.
enum class wake_reason {
    woken, // and counted by the wake; one for an earlier use of the memory may come late
    changed, // the word held something else
    interrupted, // by a signal, or because the thread is to stop
    late, // the moment has come
};

/// The same for a thread inside `uninterrupted` (uninterrupted.h): ends as soon as somebody wants to
/// suspend or terminate the calling thread, also when that wish comes between the caller's own
/// look and the sleep. The caller then leaves whatever it had joined and calls `stop_if_told`.
wake_reason wait_interruptibly(atomic<std::uint32_t> const & word, std::uint32_t expected,
                               std::int64_t until, bool shared) noexcept;

} // namespace zel::platform
