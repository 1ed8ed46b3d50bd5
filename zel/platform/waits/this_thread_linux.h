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

/// What the layer stores for each thread, also for threads that the layer did not start. The
/// handler of the stop signal reads it, hence the atomics; only the thread itself changes it.
struct this_thread_state {
    handle_slot * slot; // null for a thread that the layer did not start, and after the end
    atomic<std::uint32_t> const * control; // in the thread's record, or a word that stays 0
    atomic<std::uint32_t> depth; // how many `uninterrupted` objects exist
    atomic<bool> at_rest; // it stops voluntarily, outside of any other work
    bool last_round; // the destructors of other keys have run
    std::uint32_t id; // 0: not asked for yet
    thread_teardown teardown; // for a thread that the layer did not start
    std::uint32_t owner_number; // `id` once the thread's end abandons its mutexes; 0 before
    /// How many mutexes it owns; changed after each is taken, and after each is released.
    std::atomic<std::uint32_t> holds;
};

constexpr atomic<std::uint32_t> never_stopped{0};

// This TLS model makes an access call no function of the dynamic linker, which may allocate and so
// must not run in a signal handler. The C library reserves room for it in modules that are loaded
// with dlopen.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local this_thread_state this_thread;

/// Registers `abandon(is_orderly)`, which is called at the calling thread's end if the thread owns
/// mutexes then, and sets `this_thread.owner_number`. If the handler of the stop signal terminates
/// the thread, it calls `abandon` there with `is_orderly` false. All callers pass the same
/// function.
/// \returns false with last error 8 when the host is out of memory.
bool watch_owner(void (*abandon)(bool is_orderly) noexcept) noexcept;

/// At the calling thread's end: calls the function given to `watch_owner`, if the thread may own
/// mutexes.
void abandon_holds(bool is_orderly) noexcept;

/// For the handler of the stop signal: makes `wait_interruptibly` return at once if the thread
/// sleeps in it or is about to.
/// \param context  the handler's third argument.
void leave_interruptible_wait(void * context) noexcept;

/// Like `wait_interruptibly`, for either of two words. The second is not shared with other
/// processes.
/// \param first_is_shared  true for a word that the kernel wakes.
/// \returns false when the host cannot wait for two words.
bool wait_for_either_interruptibly(atomic<std::uint32_t> const & first,
                                   std::uint32_t first_expected, bool first_is_shared,
                                   atomic<std::uint32_t> const & second,
                                   std::uint32_t second_expected, std::int64_t until) noexcept;

} // namespace zel::platform
