// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

/// Runs small programs over the library's lock-free code through their interleavings. The sources
/// are the shipped ones; what lies under them is stood in for: atomic words (stand_in/), and in
/// host_stand_in.cpp address waits, thread numbers, stops and the kernel's list of a thread's
/// locks. Before each step a scheduler decides which thread does the next one, whose time is over,
/// who gets a signal, is told to stop, runs on, or is killed.
///
/// A scenario and everything that its threads change must lie inside the scenario object, on the
/// threads' stacks, or be atomic words: these are what is copied to go back to an earlier moment,
/// so nothing may come from the heap.
namespace zel::explorer {

constexpr int most_threads = 4; // with the audit, which runs when the others have ended

struct bounds {
    int disturbances; // preemptions, kills, stops and signals together
    int kills; // at most so many of them
    int stops; // and signals
};

class scenario;
struct entry; // scenarios.h

/// \name For scenarios
/// @{
/// The promise is broken: prints the schedule that led here. Does not return on a thread.
void fail(char const * why);
enum class condition : std::uint8_t { ready, asleep, parked, ended };
condition condition_of(int thread);
void note(char const * what) noexcept; // into the schedule that a failure prints
/// @}

/// \name For host_stand_in.cpp
/// @{
struct thread_state {
    void * stack_pointer;
    std::uintptr_t list[3]; // the kernel's list of a thread's locks: first, offset, announced
    void const * word; // that it sleeps on
    std::uint32_t expected;
    std::uint32_t last_error;
    int depth; // of `uninterrupted`
    condition where;
    std::uint8_t reason; // how its sleep ended
    bool shared, limited, interruptible, told, dying;
    bool alone; // whether its next step cannot be told from one that is done later
};
/// The running thread's; null outside of threads.
thread_state * running() noexcept;
std::uint32_t host_number() noexcept;
/// Lets others run until this thread's condition is `ready` and it is its turn.
void leave() noexcept;
enum reason : std::uint8_t { woken, changed, interrupted, timed_out, restarted };
std::uint8_t sleep(void const * word, std::uint32_t expected, bool limited, bool shared,
                   bool interruptible) noexcept;
int wake(void const * word, int count, bool shared) noexcept;
void store_and_wake_all(void * word, std::uint32_t value, bool shared) noexcept;
extern bool old_kernel; // its rule for the announced word
/// @}

/// \name For main.cpp
/// @{
struct figures {
    std::uint64_t states = 0, schedules = 0, kills = 0, stops = 0;
};
/// \returns false after a failure, which it prints.
bool exhaust(entry const & what, figures & sum);
bool run_at_random(entry const & what, double seconds, std::uint64_t seed, figures & sum);
bool replay(entry const & what, std::string const & schedule);
/// @}

} // namespace zel::explorer
