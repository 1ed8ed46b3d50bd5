// SPDX-License-Identifier: MIT
#include "tests/explorer/promise.h"

#include "tests/explorer/scenarios.h"
#include <algorithm>
#include <bit>

namespace zel::explorer {
namespace {

constexpr int most_states = 256;
state possible[most_states];

// As one number: this is done very often.
__extension__ using number = unsigned __int128;
number bits(state const & s) { return std::bit_cast<number>(s); }

} // namespace

state * promise::states() noexcept { return possible; }

void promise::begin_in(state const & first)
{
    possible[0] = first;
    count_ = 1;
}

void promise::called(int thread, char operation)
{
    operations_[static_cast<std::size_t>(thread)] = operation;
    disturbed_[static_cast<std::size_t>(thread)] = false;
    std::for_each(possible, possible + count_, [=](state & s) { s.set(thread, pending); });
    close();
}

void promise::returned(int thread, progress result)
{
    constexpr char const * texts[]
        = {"", "", "", "", "done", "refused", "told of a death", "failed"};
    auto const at = static_cast<std::size_t>(thread);
    note(texts[result]);
    keep([=](state const & s) { return s.what[at] == result; },
         "came back with what no order of the operations allows");
    operations_[at] = 0;
    // What may have happened meanwhile is there already: the others do not look at this one.
    std::for_each(possible, possible + count_, [=](state & s) { s.set(thread, idle); });
    sort();
}

void promise::fell_asleep(int thread)
{
    auto const at = static_cast<std::size_t>(thread);
    if (operations_[at] == 't' || operations_[at] == 'T') {
        fail("a test sleeps");
    }
    if (operations_[at] != 0) {
        keep([=](state const & s) { return s.what[at] == waiting || s.what[at] >= done; },
             "asleep although it need not wait");
        close();
    }
}

void promise::disturbed(int thread)
{
    disturbed_[static_cast<std::size_t>(thread)] = true;
    close();
}

// What it was doing has taken effect by now, or never will.
void promise::killed(int thread)
{
    std::for_each(possible, possible + count_, [=](state & s) { s.leave_queue(thread); });
    called(thread, 'k');
}

void promise::quiet()
{
    for (int i = 0; i < most_threads - 1; ++i) {
        auto const at = static_cast<std::size_t>(i);
        condition const where = condition_of(i);
        if (operations_[at] == 'k') {
            keep([=](state const & s) { return s.what[at] == done; }, "a death without an effect");
        } else if (operations_[at] != 0 && where == condition::asleep) {
            keep([=, this](state const & s) { return s.what[at] == waiting && may_sleep(s); },
                 "asleep beside what was given to it or is free");
        } else if (operations_[at] != 0 && where == condition::parked) {
            keep([=](state const & s) { return s.what[at] != waiting; },
                 "waits although it is stopped");
        }
    }
    close(); // what did not happen before may happen now
}

template <class Condition> void promise::keep(Condition condition, char const * otherwise)
{
    auto * const end = std::remove_if(possible, possible + count_,
                                      [&](state const & s) { return !condition(s); });
    count_ = static_cast<int>(end - possible);
    if (count_ == 0) {
        fail(otherwise);
    }
}

void promise::add(state const & s)
{
    auto const same = [&](state const & other) { return bits(other) == bits(s); };
    if (std::none_of(possible, possible + count_, same)) {
        if (count_ == most_states) {
            fail("too many possible states: not checked");
            return;
        }
        possible[count_++] = s;
    }
}

// So that equal sets are equal bytes.
void promise::sort()
{
    std::sort(possible, possible + count_,
              [](state const & one, state const & other) { return bits(one) < bits(other); });
    count_ = static_cast<int>(
        std::unique(possible, possible + count_,
                    [](state const & one, state const & other) { return bits(one) == bits(other); })
        - possible);
}

// Adds whatever may have happened in the meantime.
void promise::close()
{
    sort();
    for (int i = 0; i < count_; ++i) {
        for (int thread = 0; thread < most_threads; ++thread) {
            auto const at = static_cast<std::size_t>(thread);
            state s = possible[i];
            if (s.what[at] == pending || s.what[at] == waiting || s.what[at] == partly) {
                take_effect(s, thread, operations_[at]);
            }
            if (s.what[at] == waiting && operations_[at] == 'l') {
                s.leave_queue(thread);
                add(s.with(thread, refused));
            }
            if (s.what[at] == waiting && disturbed_[at]) { // joins again at the end
                s.leave_queue(thread);
                add(s.with(thread, pending));
            }
        }
    }
    sort();
}

} // namespace zel::explorer
