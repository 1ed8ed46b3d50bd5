// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/waits/handles.h"
#include "zel/platform/waits/this_thread_linux.h"
#include <cstdint>

#include <pthread.h>

namespace zel::platform {

/// \name The word `thread_record::control`
/// Both sides of a stop sleep on it: the thread that is stopped, and the threads that wait until it
/// is.
/// @{
constexpr std::uint32_t suspensions_mask = 0x7F; // how often it is suspended
constexpr std::uint32_t end_wanted = 0x80; // its termination is requested
static_assert(stop_mask == (suspensions_mask | end_wanted));
constexpr std::uint32_t parked = 0x100; // it sleeps in its signal handler
constexpr std::uint32_t past_stops = 0x200; // it is ending by itself and can't be stopped any more
constexpr std::uint32_t gone = 0x400; // terminated: only its last system call is left
constexpr std::uint32_t end_forced = 0x800; // it terminates itself, wherever it is
constexpr std::uint32_t postponement = 0x10000; // added when it continues, to leave the C library
/// @}

/// The stages of a thread's end, in `thread_record::end`. Waiters for the end sleep on it.
enum end_state : std::uint32_t {
    not_ended,
    leaving, // has run all of its code; the host has not cleaned up yet
    being_reaped, // the same, and one waiter is joining it
    ended, // also for the host: the mutexes that it owned are abandoned
};

/// The progress of begin_thread and its new thread, in `thread_record::start`.
enum start_state : std::uint32_t {
    starting,
    awaited, // the thread sleeps until begin_thread has stored its results
    settled,
    stoppable, // the thread has unblocked the stop signal
};

/// The record of a thread that begin_thread started; it is the object in the slot of the thread's
/// handle. The thread itself has a reference to the slot until it has ended.
///
/// `start`, `control` and `end` carry the other members: what is stored before a step on one of
/// them (release) is visible to a thread that has seen that step (acquire). So `settled` shows `id`
/// and `thread`, `end_wanted` shows `wanted_code`, `gone` shows `teardown`, and `ended` shows
/// `exit_code`.
struct thread_record {
    atomic<std::uint32_t> control;
    atomic<std::uint32_t> end;
    atomic<std::uint32_t> start;
    atomic<std::uint32_t> id; // the host's number
    atomic<std::uint32_t> exit_code; // from the thread itself
    atomic<std::uint64_t> wanted_code; // above 32 bits: terminate_thread gives the lower ones
    pthread_t thread;
    unsigned int (*proc)(void *);
    void * argument;
    thread_teardown teardown;
    std::uintptr_t stack_end; // an address above all frames of the thread's own work
};
static_assert(sizeof(thread_record) <= sizeof(handle_slot::room));

inline thread_record & record_of(handle_slot & slot) noexcept
{
    void * const room = slot.room;
    return *static_cast<thread_record *>(room);
}

/// \returns the slot of a thread's living handle, with a reference for the caller; null when it is
///          not one.
handle_slot * pin_thread(void * handle) noexcept;

/// The same, and null sets the last error to 6.
handle_slot * pinned_thread(void * handle) noexcept;

/// Drops a reference to the slot of a thread. After the last one, the host may free the thread's
/// stack as soon as it has cleaned up.
void release_thread(handle_slot & slot) noexcept;

} // namespace zel::platform
