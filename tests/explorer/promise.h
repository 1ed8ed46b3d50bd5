// SPDX-License-Identifier: MIT
#pragma once

#include "tests/explorer/explorer.h"
#include <algorithm>
#include <array>
#include <cstdint>

/// What a thing of the library's promises, as a plain machine whose operations take effect in one
/// step, a few in two, at some time between call and return. The set of all states that it may be
/// in is kept; an observation that none of them allows breaks the promise: a thread that is let
/// through or refused, asleep at a quiet moment, or still waiting while it is stopped.
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
    std::array<std::int8_t, most_threads - 1> queue{}; // the first has waited longest
    std::array<std::int8_t, most_threads> what{}; // a `progress`
    std::array<std::int8_t, most_threads> given{}; // by an operation that has been done in part

    void leave_queue(int thread)
    {
        auto * const end = queue.begin() + length;
        auto * const rest = std::remove(queue.begin(), end, thread);
        length = static_cast<std::int8_t>(rest - queue.begin());
        std::fill(rest, end, std::int8_t{0});
    }
    void set(int thread, progress now) { what[static_cast<std::size_t>(thread)] = now; }
    state with(int thread, progress now) const
    {
        state after = *this;
        after.set(thread, now);
        return after;
    }
};
static_assert(sizeof(state) == 16);

class promise {
public:
    void begin_in(state const & first);
    void called(int thread, char operation);
    void returned(int thread, progress result);

    /// \name What happens to the threads
    /// @{
    void fell_asleep(int thread);
    void disturbed(int thread); // by a stop, or by a signal while it slept
    virtual void killed(int thread);
    virtual void quiet(); // nobody can go on, unless time passes or somebody is resumed
    /// @}

    bool is_dead(int thread) const { return operations_[static_cast<std::size_t>(thread)] == 'k'; }

    /// The set of states lies outside of scenarios, since it is small mostly and may be large.
    std::size_t size() const { return static_cast<std::size_t>(count_) * sizeof(state); }
    static state * states() noexcept;

protected:
    /// Adds what the thread's operation may make of `s`, one that is pending, waiting or partly
    /// done. 'k' is what the kernel does for a thread that was killed. Where a scenario has checks of
    /// its own instead, everything is done when it returns.
    virtual void take_effect(state s, int thread, char) { add(s.with(thread, done)); }
    /// Whether it may be asleep at a quiet moment, if it waits.
    virtual bool may_sleep(state const &) const { return true; }
    void add(state const & s);

private:
    template <class Condition> void keep(Condition condition, char const * otherwise);
    void sort();
    void close();

    std::array<char, most_threads> operations_{};
    std::array<bool, most_threads> disturbed_{};
    int count_ = 0;
};

} // namespace zel::explorer
