// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/waits/handles.h"
#include <cstdint>

#include <pthread.h>

namespace zel::platform {

/// \name The word `thread_record::control`
/// Both sides of a stop sleep on it: the thread that is stopped, and those who wait until it is.
/// @{
constexpr std::uint32_t suspensions_mask = 0x7F; // how often it is suspended
constexpr std::uint32_t end_wanted = 0x80; // it is to be terminated
constexpr std::uint32_t stop_mask = suspensions_mask | end_wanted;
constexpr std::uint32_t parked = 0x100; // it sleeps in its signal handler
constexpr std::uint32_t past_stops = 0x200; // it ends by itself: too late to stop it
constexpr std::uint32_t gone = 0x400; // terminated: nothing but its last system call is left
constexpr std::uint32_t end_forced = 0x800; // terminated wherever it is
constexpr std::uint32_t postponement = 0x10000; // added when it goes on to leave the C library
/// @}

/// What becomes of a thread, in `thread_record::end`. Those that wait for the end sleep on it.
enum end_state : std::uint32_t {
    not_ended,
    on_last_steps, // ends by itself; whoever looks sees it off
    being_seen_off,
    unburied, // terminated, and in the graveyard
    ended, // for the host too, so that the mutexes that it owned are abandoned
};

/// Where begin_thread and its thread are, in `thread_record::start`.
enum start_state : std::uint32_t {
    starting,
    awaited, // the thread sleeps until begin_thread has stored its results
    settled,
    stoppable, // the thread has let the stop signal in
};

struct thread_teardown {
    void (*function)(void *);
    void * data;
};

/// What others know of a thread that begin_thread made: the object in the slot of its handle. The
/// thread has a reference of its own on the slot until it has ended.
struct thread_record {
    atomic<std::uint32_t> control;
    atomic<std::uint32_t> end;
    atomic<std::uint32_t> start;
    atomic<std::uint32_t> id; // the host's number
    atomic<std::uint32_t> exit_code; // that of the thread itself
    atomic<std::uint64_t> wanted_code; // above 32 bits: terminate_thread gives the lower ones
    pthread_t thread;
    unsigned int (*proc)(void *);
    void * argument;
    thread_teardown teardown;
};
static_assert(sizeof(thread_record) <= sizeof(handle_slot::room));

inline thread_record & record_of(handle_slot & slot) noexcept
{
    void * const room = slot.room;
    return *static_cast<thread_record *>(room);
}

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
    /// How many mutexes it owns at most: counted before each is taken and after it is given back.
    atomic<std::uint32_t> holds;
};

constexpr atomic<std::uint32_t> nobody_stops{0};

// Beside the thread pointer, so that no access calls the dynamic linker: that may allocate, which a
// signal handler must not. The C library keeps room for this in modules that are loaded late.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local this_thread_state this_thread;

/// Has `abandon(is_orderly)` called on the calling thread at its end if it may own mutexes then, and
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

/// Like `wait_interruptibly`, for any of two words; neither is shared.
/// \returns false when the host cannot wait for two words.
bool wait_for_either_interruptibly(atomic<std::uint32_t> const & first,
                                   std::uint32_t first_expected,
                                   atomic<std::uint32_t> const & second,
                                   std::uint32_t second_expected, std::int64_t until) noexcept;

/// Makes ready what stopping a thread needs.
void prepare_stops() noexcept;

/// Lets the stop signal in, whatever the mask that the calling thread has inherited.
void admit_stop_signal() noexcept;

/// Stops the calling thread, outside of `uninterrupted`, as long as it is told to.
void stop_here() noexcept;

/// Finishes every thread that was terminated and that nobody else is finishing: waits until the
/// host is done with it, calls its teardown, tells the waiters. Whoever sees a thread `unburied`
/// calls this, and then sleeps until it has ended. The caller is inside `uninterrupted`.
void visit_graveyard() noexcept;

/// In the child after a fork.
void forget_graveyard() noexcept;

/// \returns the slot of a living handle of a thread, with a reference for the caller; null with
///          last error 6.
handle_slot * pinned_thread(void * handle) noexcept;

/// Waits until the host is done with the thread, and gives its stack back.
void join(thread_record & record) noexcept;

/// Drops a reference on the slot of a thread.
void let_go(handle_slot & slot) noexcept;

} // namespace zel::platform
