// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/waits/address_wait.h"
#include <cstddef>
#include <cstdint>
#include <string>

/// Runs small programs over the library's lock-free code through their interleavings. The sources
/// are the shipped ones; what lies under them is stood in for: atomic words (stepped/), and in
/// host_stand_in.cpp address waits, thread numbers, stops and the kernel's list of a thread's
/// locks. Before each step a scheduler decides which thread does the next one, whose time is over,
/// who gets a signal, is told to stop, runs on, or is killed.
///
/// A scenario and everything that its threads change must lie inside the scenario object, on the
/// threads' stacks, or be atomic words: these are what is copied to go back to an earlier moment,
/// so nothing may come from the heap.
namespace zel::explorer {

constexpr int most_threads = 4; // with the audit, which runs when the others have ended
constexpr std::size_t scenario_size = 6144;

struct bounds {
    int disturbances; // preemptions, kills, stops and signals together
    int kills; // at most so many of them
    int stops; // and signals, at most 2
};

struct entry; // scenario.h

/// How a sleep ends that the kernel begins again, as after a handler with SA_RESTART.
constexpr platform::wake_reason restarted{4};

enum class condition : std::uint8_t { ready, asleep, parked, ended };

struct thread_state {
    void * stack_pointer;
    std::uintptr_t list[3]; // the kernel's list of a thread's locks: first, offset, announced
    void const * word; // that it sleeps on
    std::uint32_t last_error;
    int depth; // of `uninterrupted`
    platform::wake_reason reason; // how its sleep ended
    condition where;
    bool shared, limited, interruptible, told, dying;
    bool alone; // whether its next step cannot be told from one that is done later
};

/// All that changes while threads run, apart from their stacks, from what may be promised, and from
/// words of static storage.
struct world {
    thread_state threads[most_threads];
    std::uint8_t sleepers[most_threads]; // in the order in which they fell asleep
    int sleeping;
    int count; // threads that were started
    int current;
    bounds left;
    alignas(128) std::byte room[scenario_size];
};
extern world now;

/// The running thread's; null outside of threads.
thread_state * running() noexcept;
std::uint32_t host_number() noexcept;
/// Lets others run until this thread's condition is `ready` and it is its turn.
void leave() noexcept;
/// The promise is broken: prints the schedule that led here. Does not return on a thread.
void fail(char const * why);
void note(char const * what) noexcept; // into the schedule that a failure prints
void fell_asleep(); // the running thread, in a wait that a stop would end

/// \name The kernel's side, in host_stand_in.cpp
/// @{
void wake_up(int thread, platform::wake_reason reason) noexcept;
void die() noexcept; // the running thread
extern bool old_kernel; // its rule for the announced word
/// @}

/// \name For main.cpp
/// @{
struct figures {
    std::uint64_t states, schedules, kills, stops;
};
extern figures sum;
/// \returns false after a failure, which it prints.
bool exhaust(entry const & what);
bool run_at_random(entry const & what, double seconds, std::uint64_t seed);
bool replay(entry const & what, std::string const & schedule);
/// @}

} // namespace zel::explorer
