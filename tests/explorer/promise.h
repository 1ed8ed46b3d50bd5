// SPDX-License-Identifier: MIT
#pragma once

#include "tests/explorer/explorer.h"
#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <utility>

/// What events and semaphores promise, as a plain machine: units, a queue of those that wait, and
/// what has become of each thread's operation, which takes effect in one step at some time between
/// its call and its return. The set of all states that the machine may be in is kept; an
/// observation that none of them allows breaks the promise.
namespace zel::explorer {

enum class sort : std::int8_t { automatic, manual, semaphore };

/// Operations, as scenarios write them: 'w' a wait without limit, 'l' one with, 't' only a test,
/// 's' set, 'r' reset, 'p' pulse, '1' to '9' a release of so many units.
constexpr bool is_wait(char operation)
{
    return operation == 'w' || operation == 'l' || operation == 't';
}

/// \tparam most_states  how many there may be at a time; more is an error, and room costs time.
template <int most_states> class promise {
public:
    promise(sort kind, int units, int maximum, bool lends)
        : lends_(lends)
        , kind_(kind)
        , maximum_(static_cast<std::int8_t>(maximum))
    {
        states_[0].units = static_cast<std::int8_t>(units);
        count_ = 1;
    }

    void called(int thread, char operation)
    {
        operations_[thread] = operation;
        disturbed_[thread] = false;
        for (int i = 0; i < count_; ++i) {
            states_[i].what[thread] = pending;
        }
        close();
    }

    /// \param success  of a wait: let through; of anything else: true was returned.
    void returned(int thread, bool success)
    {
        keep([&](state const & s) { return s.what[thread] == (success ? done : refused); },
             is_wait(operations_[thread])
                 ? (success ? "let through without a unit" : "not let through beside a unit")
                 : (success ? "accepted above the maximum" : "refused below the maximum"));
        for (int i = 0; i < count_; ++i) {
            states_[i].what[thread] = idle;
        }
        operations_[thread] = 0;
        close();
    }

    void fell_asleep(int thread)
    {
        if (operations_[thread] != 0 && is_wait(operations_[thread])) {
            keep(
                [&](state const & s) {
                    return s.what[thread] == waiting || s.what[thread] == done;
                },
                "asleep although it need not wait");
        }
    }

    void disturbed(int thread)
    {
        disturbed_[thread] = true;
        close();
    }

    /// A wait is over; anything else may still take effect, or a part of it.
    void killed(int thread)
    {
        if (operations_[thread] == 0) {
            return;
        }
        dead_[thread] = true;
        for (int i = 0; i < count_; ++i) {
            if (is_wait(operations_[thread])) {
                states_[i].leave(thread);
                states_[i].what[thread] = idle;
            }
        }
        close();
    }

    /// Nobody runs.
    void quiet(int thread, condition where)
    {
        if (dead_[thread] || operations_[thread] == 0) {
            return;
        }
        if (where == condition::asleep) {
            keep([&](state const & s) { return s.what[thread] == waiting; },
                 "asleep beside what was given to it or is free");
        } else if (where == condition::parked) {
            keep([&](state const & s) { return s.what[thread] != waiting; },
                 "waits although it is stopped");
        }
    }

private:
    enum progress : std::int8_t { idle, pending, waiting, done, refused, partly };

    struct alignas(8) state {
        std::int8_t units;
        std::int8_t length; // of the queue
        std::array<std::int8_t, most_threads> queue; // the first has waited longest
        std::array<std::int8_t, most_threads> what; // a `progress`
        std::array<std::int8_t, most_threads> given; // of a release that has been done in part

        std::array<std::int8_t, 2> unused;

        // As two numbers: this is done very often.
        std::array<std::uint64_t, 2> bits() const
        {
            return std::bit_cast<std::array<std::uint64_t, 2>>(*this);
        }
        bool operator==(state const & other) const { return bits() == other.bits(); }
        bool operator<(state const & other) const { return bits() < other.bits(); }

        int pop()
        {
            int const first = queue[0];
            leave(first);
            what[static_cast<std::size_t>(first)] = done;
            return first;
        }
        void leave(int thread)
        {
            auto * const end = queue.begin() + length;
            auto * const rest = std::remove(queue.begin(), end, thread);
            length = static_cast<std::int8_t>(rest - queue.begin());
            std::fill(rest, end, std::int8_t{0});
        }
    };

    template <class Condition> void keep(Condition condition, char const * otherwise)
    {
        auto * const end = std::remove_if(states_.begin(), states_.begin() + count_,
                                          [&](state const & s) { return !condition(s); });
        count_ = static_cast<int>(end - states_.begin());
        if (count_ == 0) {
            fail(otherwise);
        }
        close(); // what did not happen before may happen now
    }

    void add(state const & s)
    {
        auto * const end = states_.begin() + count_;
        if (std::find(states_.begin(), end, s) == end) {
            if (count_ == static_cast<int>(states_.size())) {
                fail("too many possible states: not checked");
                return;
            }
            *end = s;
            ++count_;
        }
    }

    // Adds whatever may have happened in the meantime. Sorted, so that equal sets are equal bytes.
    void close()
    {
        int const before = std::exchange(count_, 0);
        std::array<state, most_states> const old = std::exchange(states_, {});
        for (int i = 0; i < before; ++i) {
            add(old[static_cast<std::size_t>(i)]);
        }
        for (int i = 0; i < count_; ++i) {
            for (int thread = 0; thread < most_threads; ++thread) {
                take_effect(states_[static_cast<std::size_t>(i)], thread);
            }
        }
        std::sort(states_.begin(), states_.begin() + count_);
    }

    void take_effect(state s, int thread)
    {
        auto const at = static_cast<std::size_t>(thread);
        char const operation = operations_[at];
        if (s.what[at] == waiting) {
            if (operation == 'l') {
                state left = s;
                left.leave(thread);
                left.what[at] = refused;
                add(left);
            }
            if (disturbed_[at]) { // joins again at the end
                s.leave(thread);
                s.what[at] = pending;
                add(s);
            }
        } else if (s.what[at] == partly) {
            go_on_releasing(s, at);
        } else if (s.what[at] == pending) {
            if (is_wait(operation)) {
                wait(s, at);
            } else if (operation >= '1' && operation <= '9') {
                release(s, at);
            } else {
                change(s, at);
            }
        }
    }

    void wait(state s, std::size_t at)
    {
        if (s.units > 0) {
            s.units = static_cast<std::int8_t>(s.units - (kind_ == sort::manual ? 0 : 1));
            s.what[at] = done;
        } else if (operations_[at] == 't') {
            s.what[at] = refused;
        } else {
            s.queue[static_cast<std::size_t>(s.length++)] = static_cast<std::int8_t>(at);
            s.what[at] = waiting;
        }
        add(s);
    }

    void change(state s, std::size_t at) // set, reset, pulse
    {
        char const operation = operations_[at];
        s.what[at] = done;
        if (operation != 's') {
            s.units = 0;
        }
        bool const had_waiters = s.length > 0;
        while (operation != 'r' && s.length > 0) {
            s.pop();
            if (kind_ != sort::manual) {
                break;
            }
        }
        if (operation == 's' && (kind_ == sort::manual || !had_waiters)) {
            s.units = 1;
        }
        add(s);
    }

    void release(state s, std::size_t at)
    {
        int const count = operations_[at] - '0';
        if (s.units + count > maximum_) {
            s.what[at] = refused;
            add(s);
            return;
        }
        int given = 0;
        for (; given < count && s.length > 0; ++given) {
            s.pop();
            if (lends_ && given + 1 < count) {
                state part = s;
                part.what[at] = partly;
                part.given[at] = static_cast<std::int8_t>(given + 1);
                add(part);
            }
        }
        s.units = static_cast<std::int8_t>(s.units + count - given);
        s.what[at] = done;
        add(s);
    }

    void go_on_releasing(state s, std::size_t at)
    {
        int const count = operations_[at] - '0';
        int rest = count - s.given[at];
        if (s.units + rest > maximum_) {
            s.units = static_cast<std::int8_t>(s.units - s.given[at]);
            s.what[at] = refused;
        } else if (s.length > 0) {
            s.pop();
            s.given[at] = static_cast<std::int8_t>(s.given[at] + 1);
            s.what[at] = static_cast<std::int8_t>(rest == 1 ? done : partly);
        } else {
            s.units = static_cast<std::int8_t>(s.units + rest);
            s.what[at] = done;
        }
        if (s.what[at] != partly) {
            s.given[at] = 0;
        }
        add(s);
    }

    bool lends_; // a release of several units may let waiters through before the rest is settled
    sort kind_;
    std::int8_t maximum_;
    std::array<char, most_threads> operations_{};
    std::array<bool, most_threads> disturbed_{};
    std::array<bool, most_threads> dead_{};
    std::array<state, most_states> states_{};
    int count_ = 0;
};

} // namespace zel::explorer
