// SPDX-License-Identifier: MIT
#pragma once

#include "tests/explorer/explorer.h"
#include <algorithm>
#include <functional>
#include <initializer_list>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace zel::explorer {

/// What has become of a thread's operation; from `done` on it will return that.
enum progress : std::int8_t { idle, pending, waiting, partly, done, refused, abandoned, failed };

/// Each kind of thing uses of it what it needs. Plain bytes: equal states are equal bytes.
struct alignas(16) state {
    std::int8_t units = 0; // that are free; of a mutex: the owner's holds
    std::int8_t owner = 0; // the thread's number and one
    std::int8_t died = 0; // an owner did, and nobody was told
    std::int8_t closed = 0;
    std::int8_t length = 0; // of the queue
    std::int8_t queue[most_threads - 1]{}; // the first has waited longest
    std::int8_t what[most_threads]{}; // a `progress`
    std::int8_t given[most_threads]{}; // by an operation that has been done in part

    void leave_queue(int thread)
    {
        auto * const rest = std::remove(queue, queue + length, thread);
        std::fill(rest, queue + length, std::int8_t{0});
        length = static_cast<std::int8_t>(rest - queue);
    }
    /// \returns with the thread's operation at this point.
    state with(int thread, progress reached) const
    {
        state after = *this;
        after.what[thread] = reached;
        return after;
    }
};
static_assert(sizeof(state) == 16);

/// One thing of the library's, and threads that use it. Each thread's program is a text whose
/// letters are operations; the last program is the audit's. A kind of thing says in `call` how an
/// operation is done, and in `take_effect` what it promises: as a plain machine whose operations
/// take effect in one step, a few in two, at some time between call and return. The set of all
/// states that it may be in is kept; an observation that none of them allows breaks the promise: a
/// thread that is let through or refused, asleep at a quiet moment, or still waiting while it is
/// stopped.
class scenario {
public:
    explicit scenario(entry const & what, state const & first = {});
    virtual ~scenario() = default;
    virtual void begin() { } // makes the object; nothing is explored yet

    int threads() const { return threads_; } // without the audit
    char const * title(int thread) const;
    void run(int thread);

    /// Whether a kill may hit a thread anywhere, as that of a process does, or only where it may be
    /// terminated: outside of `uninterrupted`.
    virtual bool dies_anywhere() const { return true; }
    /// The host's number of the thread; two threads of different containers may have the same.
    virtual std::uint32_t number(int thread) const { return 101 + static_cast<unsigned>(thread); }

    /// \name What happens to the threads
    /// @{
    void fell_asleep(int thread);
    void disturbed(int thread); // by a stop, or by a signal while it slept
    void killed(int thread);
    void quiet(); // nobody can go on, unless time passes or somebody is resumed
    /// @}

    /// The set of states lies outside of scenarios, since it is small mostly and may be large.
    std::size_t size() const { return static_cast<std::size_t>(count_) * sizeof(state); }
    static state * states() noexcept;

protected:
    bool is_dead(int thread) const { return operations_[thread] == 'k'; }
    /// Whether the operation makes sense now: an unlock of what the thread has.
    virtual bool applies(int, char) const { return true; }
    virtual progress call(int thread, char operation) = 0;
    /// Adds what the thread's operation may make of `s`, one that is pending, waiting or partly
    /// done. 'k' is what the kernel does for a thread that was killed.
    virtual void take_effect(state s, int thread, char operation) = 0;
    /// Whether it may be asleep at a quiet moment, if it waits.
    virtual bool may_sleep(state const &) const { return true; }
    void add(state const & s);

private:
    void called(int thread, char operation);
    void returned(int thread, progress result);
    template <class Condition> void keep(Condition condition, char const * otherwise);
    void sort();
    void close();

    entry const & what_;
    int threads_;
    int count_ = 1;
    char operations_[most_threads]{};
    bool disturbed_[most_threads]{};
};

struct entry {
    std::string name;
    std::vector<std::string> programs;
    bounds limits;
    bool is_long; // for schedules that are drawn
    std::size_t size;
    std::function<scenario *(void * room, entry const &)> make;
};

template <class Scenario, class... Arguments>
void add(std::vector<entry> & entries, std::string name, std::vector<std::string> programs,
         char const * audit, bounds limits, bool is_long, Arguments... arguments)
{
    static_assert(sizeof(Scenario) <= scenario_size && alignof(Scenario) <= 128);
    for (std::string const & program : programs) {
        name += " " + (program.empty() ? "-" : program);
    }
    programs.emplace_back(audit);
    entries.push_back({std::move(name), std::move(programs), limits, is_long, sizeof(Scenario),
                       [=](void * room, entry const & what) -> scenario * {
                           return new (room) Scenario(what, arguments...);
                       }});
}

/// Every two and three of these programs beside each other, in every order if that matters.
template <class Function>
void for_each_group(std::initializer_list<char const *> all, bool in_order, Function function)
{
    for (auto const * a = all.begin(); a != all.end(); ++a) {
        for (auto const * b = in_order ? all.begin() : a; b != all.end(); ++b) {
            function(std::vector<std::string>{*a, *b});
            for (auto const * c = in_order ? all.begin() : b; c != all.end(); ++c) {
                function(std::vector<std::string>{*a, *b, *c});
            }
        }
    }
}

void add_kernel_objects(std::vector<entry> & entries);
void add_names_and_handles(std::vector<entry> & entries);
void add_messages(std::vector<entry> & entries);

} // namespace zel::explorer
