// SPDX-License-Identifier: MIT
#include "tests/explorer/scenario.h"

#include <bit>
#include <cstdio>

namespace zel::explorer {
namespace {

constexpr int most_states = 256;
state possible[most_states];

// As one number: this is done very often.
__extension__ using number = unsigned __int128;
number bits(state const & s) { return std::bit_cast<number>(s); }

} // namespace

state * scenario::states() noexcept { return possible; }

scenario::scenario(entry const & what, state const & first)
    : what_(what)
    , threads_(static_cast<int>(what.programs.size()) - 1)
{
    possible[0] = first;
}

char const * scenario::title(int thread) const
{
    static char text[32];
    std::snprintf(text, sizeof text, "%c:%s", thread < threads_ ? 'A' + thread : '=',
                  what_.programs[static_cast<std::size_t>(thread)].c_str());
    return text;
}

void scenario::run(int thread)
{
    for (char const operation : what_.programs[static_cast<std::size_t>(thread)]) {
        if (applies(thread, operation)) {
            char const text[] = {'c', 'a', 'l', 'l', 's', ' ', operation, '\0'};
            note(text);
            called(thread, operation);
            returned(thread, call(thread, operation));
        }
    }
}

void scenario::called(int thread, char operation)
{
    operations_[thread] = operation;
    disturbed_[thread] = false;
    std::for_each(possible, possible + count_, [=](state & s) { s.what[thread] = pending; });
    close();
}

void scenario::returned(int thread, progress result)
{
    constexpr char const * texts[]
        = {"", "", "", "", "done", "refused", "told of a death", "failed"};
    note(texts[result]);
    keep([=](state const & s) { return s.what[thread] == result; },
         "came back with what no order of the operations allows");
    operations_[thread] = 0;
    // What may have happened meanwhile is there already: the others do not look at this one.
    std::for_each(possible, possible + count_, [=](state & s) { s.what[thread] = idle; });
    sort();
}

void scenario::fell_asleep(int thread)
{
    if (operations_[thread] == 't') {
        fail("a test sleeps");
    }
    if (operations_[thread] != 0) {
        keep([=](state const & s) { return s.what[thread] == waiting || s.what[thread] >= done; },
             "asleep although it need not wait");
        close();
    }
}

void scenario::disturbed(int thread)
{
    disturbed_[thread] = true;
    close();
}

// What it was doing has taken effect by now, or never will.
void scenario::killed(int thread)
{
    std::for_each(possible, possible + count_, [=](state & s) { s.leave_queue(thread); });
    called(thread, 'k');
}

void scenario::quiet()
{
    for (int i = 0; i < threads_; ++i) {
        condition const where = now.threads[i].where;
        if (operations_[i] == 'k') {
            keep([=](state const & s) { return s.what[i] == done; }, "a death without an effect");
        } else if (operations_[i] != 0 && where == condition::asleep) {
            keep([=, this](state const & s) { return s.what[i] == waiting && may_sleep(s); },
                 "asleep beside what was given to it or is free");
        } else if (operations_[i] != 0 && where == condition::parked) {
            keep([=](state const & s) { return s.what[i] != waiting; },
                 "waits although it is stopped");
        }
    }
    close(); // what did not happen before may happen now
}

template <class Condition> void scenario::keep(Condition condition, char const * otherwise)
{
    auto * const end = std::remove_if(possible, possible + count_,
                                      [&](state const & s) { return !condition(s); });
    count_ = static_cast<int>(end - possible);
    if (count_ == 0) {
        fail(otherwise);
    }
}

void scenario::add(state const & s)
{
    auto const same = [&](state const & other) { return bits(other) == bits(s); };
    if (std::any_of(possible, possible + count_, same)) {
        return;
    }
    if (count_ == most_states) {
        fail("too many possible states: not checked");
    } else {
        possible[count_++] = s;
    }
}

// So that equal sets are equal bytes.
void scenario::sort()
{
    std::sort(possible, possible + count_,
              [](state const & one, state const & other) { return bits(one) < bits(other); });
    count_ = static_cast<int>(
        std::unique(possible, possible + count_,
                    [](state const & one, state const & other) { return bits(one) == bits(other); })
        - possible);
}

// Adds whatever may have happened in the meantime.
void scenario::close()
{
    sort();
    for (int i = 0; i < count_; ++i) {
        for (int thread = 0; thread <= threads_; ++thread) {
            state s = possible[i];
            progress const at = static_cast<progress>(s.what[thread]);
            if (at == pending || at == waiting || at == partly) {
                take_effect(s, thread, operations_[thread]);
            }
            if (at == waiting && operations_[thread] == 'l') {
                s.leave_queue(thread);
                add(s.with(thread, refused));
            }
            if (at == waiting && disturbed_[thread]) { // joins again at the end
                s.leave_queue(thread);
                add(s.with(thread, pending));
            }
        }
    }
    sort();
}

} // namespace zel::explorer
