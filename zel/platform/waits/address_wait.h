// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include <cstdint>

namespace zel::platform {

/// Nanoseconds of the monotonic clock.
std::int64_t monotonic_now() noexcept;

/// The moment `milliseconds` from now, in nanoseconds of the monotonic clock; -1, no limit, for
/// 0xFFFFFFFF.
std::int64_t moment_after(std::uint32_t milliseconds) noexcept;

/// Sleeps while `word` holds `expected`. The comparison and falling asleep are one step, so a
/// change followed by a wake cannot be missed. It may return for no reason: check the word again.
/// \param until   nanoseconds of the monotonic clock; negative for no limit.
/// \param shared  true for a word in memory that other processes map, or that the kernel wakes.
/// \returns false when the wait timed out, else true.
bool wait_on_address(atomic<std::uint32_t> const & word, std::uint32_t expected, std::int64_t until,
                     bool shared) noexcept;

/// Wakes up to `count` of the threads that sleep on `word` with the same `shared`.
/// \returns how many were woken.
int wake_address(atomic<std::uint32_t> const & word, int count, bool shared) noexcept;

/// Stores `value` and wakes all threads that sleep on `word` with the same `shared`. The kernel
/// does both in one step: a process that is killed meanwhile has done both or neither.
/// \param value  below 2,048.
void store_and_wake_all(atomic<std::uint32_t> & word, std::uint32_t value, bool shared) noexcept;

/// Why `wait_interruptibly` returned.
enum class wake_reason {
    woken, // and counted by the wake, which may belong to an earlier use of this memory
    changed, // the word held something else
    interrupted, // by a signal, or because the thread is to stop
    timed_out,
};

/// The same for a thread inside `uninterrupted` (uninterrupted.h). It returns as soon as another
/// thread wants to suspend or terminate the calling thread, also when that request arrives between
/// the caller's own check and the sleep. The caller then leaves any queue that it has joined and
/// calls `stop_if_told`.
wake_reason wait_interruptibly(atomic<std::uint32_t> const & word, std::uint32_t expected,
                               std::int64_t until, bool shared) noexcept;

} // namespace zel::platform
