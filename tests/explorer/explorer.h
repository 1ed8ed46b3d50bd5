// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <string>
#include <vector>

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

constexpr int most_threads = 4;

class scenario {
public:
    virtual ~scenario() = default;
    virtual int threads() const = 0; // up to most_threads - 1, for there is the audit
    /// Makes the objects. No other thread is there yet; nothing is explored.
    virtual void begin() { }
    virtual void run(int thread) = 0;
    /// After the threads have done all they can, on a thread of its own, undisturbed.
    virtual void audit() { }
    /// Whether a kill may hit the thread anywhere, as that of a process does, or only where it may
    /// be terminated: outside of `uninterrupted`.
    virtual bool dies_anywhere(int) const { return true; }
    /// The host's number of the thread; two threads of different containers may have the same.
    virtual std::uint32_t number(int thread) const { return 101 + static_cast<unsigned>(thread); }
    virtual char const * title(int thread) const = 0;

    /// \name What happens to the threads
    /// @{
    virtual void fell_asleep(int) { }
    virtual void disturbed(int) { } // by a stop, or by a signal while it slept
    virtual void killed(int) { }
    /// Nobody can go on, unless time passes or somebody is resumed.
    virtual void quiet() { }
    /// @}
};

struct bounds {
    int preemptions = 3;
    int kills = 0;
    int stops = 0; // and other signals
};

struct entry {
    std::string name;
    bounds limits;
    bool is_long; // for schedules that are drawn
    std::size_t size;
    std::function<scenario *(void * room)> make;
};

constexpr std::size_t scenario_size = 6144;

template <class Scenario, class... Arguments>
entry make_entry(std::string name, bounds limits, bool is_long, Arguments... arguments)
{
    static_assert(sizeof(Scenario) <= scenario_size && alignof(Scenario) <= 128);
    return {std::move(name), limits, is_long, sizeof(Scenario),
            [=](void * room) -> scenario * { return new (room) Scenario(arguments...); }};
}

/// \name For scenarios
/// @{
/// The promise is broken: prints the schedule that led here. Does not return on a thread.
void fail(char const * why);
enum class condition : std::uint8_t { ready, asleep, parked, ended };
condition condition_of(int thread);
bool was_told(int thread); // to stop, and not resumed since
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
    bool shared, limited, interruptible, told, dying, started;
};
/// The running thread's; null outside of threads.
thread_state * running() noexcept;
int running_number() noexcept;
std::uint32_t host_number() noexcept;
/// Lets others run until this thread's condition is `ready` and it is its turn.
void leave() noexcept;
enum reason : std::uint8_t { woken, changed, interrupted, timed_out, restarted };
std::uint8_t sleep(void const * word, std::uint32_t expected, bool limited, bool shared,
                   bool interruptible) noexcept;
int wake(void const * word, int count, bool shared) noexcept;
void store_and_wake_all(void * word, std::uint32_t value, bool shared) noexcept;
void note(char const * what) noexcept; // into the schedule that a failure prints
extern bool old_kernel; // its rule for the announced word
/// @}

/// What the program does with its arguments; see main.cpp for them.
struct orders {
    double seconds = 0; // of random runs, for each scenario
    std::uint64_t seed = 1;
    std::size_t most_states = 2'000'000; // of each scenario; exhaustive up to there
    int depth = 3; // changes of priority in a random run
};
struct figures {
    std::uint64_t states = 0, schedules = 0, kills = 0, stops = 0, longest = 0;
    bool complete = true;
};

/// \returns false after a failure, which it prints.
bool exhaust(entry const & what, orders const & how, figures & sum);
bool run_at_random(entry const & what, orders const & how, figures & sum);
bool replay(entry const & what, std::string const & schedule);

} // namespace zel::explorer
