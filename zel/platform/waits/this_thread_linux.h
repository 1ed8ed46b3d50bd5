// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include <atomic>
#include <cstdint>

namespace zel::platform {

struct handle_slot;

/// The part of a thread's control word (thread_record_linux.h) that tells the thread to stop: how
/// often it is suspended, and whether it is to be terminated.
constexpr std::uint32_t stop_mask = 0xFF;

struct thread_teardown {
    void (*function)(void *);
    void * data;
};

/// What the calling thread, whoever made it, keeps for this layer. The handler of the stop signal
/// reads it, hence the atomics; only the thread itself changes it.
struct this_thread_state {
    handle_slot * slot; // null for a thread that others made, and after the end of one of ours
    atomic<std::uint32_t> const * control; // of the record, or a word that stays 0
    atomic<std::uint32_t> depth; // how many `uninterrupted` live
    atomic<bool> at_rest; // stops of its own accord, outside of any work
    bool last_round; // the destructors of other keys had their turn
    std::uint32_t id; // 0: not asked for yet
    thread_teardown teardown; // of a thread that others made
    std::uint32_t owner_number; // `id` once the thread's end abandons what it owns, before that 0
    /// How many mutexes it owns: counted after each is taken and after it is given back.
    std::atomic<std::uint32_t> holds;
};

constexpr atomic<std::uint32_t> nobody_stops{0};

// Beside the thread pointer, so that no access calls the dynamic linker: that may allocate, which a
// signal handler must not. The C library keeps room for this in modules that are loaded late.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local this_thread_state this_thread;

/// Has `abandon(is_orderly)` called on the calling thread at its end if it owns mutexes then, and
/// sets `this_thread.owner_number`. In the handler of the stop signal the thread is terminated
/// wherever it is, and `is_orderly` is false. All callers pass the same function.
/// \returns false with last error 8 when the host is out of memory.
bool watch_owner(void (*abandon)(bool is_orderly) noexcept) noexcept;

/// At the calling thread's end: calls what `watch_owner` was told of, if that is needed.
void abandon_holds(bool is_orderly) noexcept;

/// For the handler of the stop signal: a thread that was about to sleep in `wait_interruptibly`, or
/// does sleep there, comes back from it at once.
/// \param context  the handler's third argument.
void leave_interruptible_wait(void * context) noexcept;

/// Like `wait_interruptibly`, for any of two words. The second is not shared with other processes.
/// \param first_is_shared  true for a word that the kernel wakes.
/// \returns false when the host cannot wait for two words.
bool wait_for_either_interruptibly(atomic<std::uint32_t> const & first,
                                   std::uint32_t first_expected, bool first_is_shared,
                                   atomic<std::uint32_t> const & second,
                                   std::uint32_t second_expected, std::int64_t until) noexcept;

} // namespace zel::platform
