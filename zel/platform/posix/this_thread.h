// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

namespace zel::platform {

/// What others know of a thread that `begin_thread` made; it lies in the slot of its handle.
struct thread_record;

/// What the calling thread, whoever made it, keeps for this layer. The signal handler that stops
/// threads reads it, hence the atomics; only the thread itself changes it.
struct this_thread_state {
    thread_record * record; // null for a thread that others made
    /// Anything but 0 in the low byte: somebody wants the thread to stop.
    std::atomic<std::uint32_t> const * control;
    std::atomic<std::uint32_t> depth; // how many `uninterrupted` live
    std::atomic<bool> at_rest; // stops of its own accord, outside the C library's work
    std::uint32_t id; // 0: not asked for yet
};

/// The low byte of `control`: how often it is suspended, and whether it is to end.
constexpr std::uint32_t stop_mask = 0xFF;
constexpr std::uint32_t suspensions_mask = 0x7F;
constexpr std::uint32_t end_wanted = 0x80;

constexpr std::atomic<std::uint32_t> nobody_stops{0};

// Beside the thread pointer, so that no access calls the dynamic linker: that may allocate, which a
// signal handler must not. The C library keeps room for this in modules that are loaded late.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local this_thread_state this_thread;

/// For the signal handler: a thread that was about to sleep in `wait_interruptibly`, or does sleep
/// there, comes back from it at once.
/// \param context  the handler's third argument.
void leave_interruptible_wait(void * context) noexcept;

} // namespace zel::platform
