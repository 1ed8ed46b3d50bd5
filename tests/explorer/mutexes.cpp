// SPDX-License-Identifier: MIT
// Mutexes: without a name by their handles, and those in shared memory by their lanes.
#include "tests/explorer/scenarios.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/objects/mutex_lanes_linux.h"
#include "zel/platform/objects/unnamed_mutex_linux.h"
#include "zel/platform/waits/uninterrupted.h"
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <new>
#include <string>

namespace zel::explorer {
namespace {

using namespace zel::platform;

/// Operations: 'L' a lock without limit, 'l' one with, 'T' only a test, 'U' an unlock if the thread
/// has the mutex, 'E' the orderly end of an owner of an unnamed one, 'C' its handle is closed.
struct layout {
    char const * programs[most_threads - 1]; // null: no such thread
    bool kept_out; // somebody has waited for long
    bool crossed; // the second thread is in another namespace, with the first one's number
};

class unnamed_mutex {
public:
    static constexpr bool is_shared = false;

    explicit unnamed_mutex(layout const & what)
    {
        handle_blocks[0].store(slots_);
        handle_ = create_unnamed_mutex(false);
        mutex_room_of(slots_[0]).kept_out.store(what.kept_out ? 1 : 0);
    }
    std::uint32_t lock(int, std::int64_t until)
    {
        return take_free_mutex(slots_[0], handle_, host_number())
            ? wait_object_0
            : wait_for_unnamed_mutex(slots_[0], handle_,
                                     until < 0 ? infinite : static_cast<std::uint32_t>(until));
    }
    bool unlock(int)
    {
        return give_back_mutex(slots_[0], handle_, host_number())
            || release_unnamed_mutex(slots_[0], handle_);
    }
    void end() { abandon_unnamed_mutexes(host_number()); }
    bool close() { return close_unnamed_mutex(slots_[0], handle_); }

private:
    handle_slot slots_[2]{};
    void * handle_;
};

class shared_mutex {
public:
    static constexpr bool is_shared = true;

    explicit shared_mutex(layout const & what)
        : crossed_(what.crossed)
    {
        for (std::uint64_t space = 7; space < (what.crossed ? 9 : 8); ++space) {
            find_lane(lanes_, space);
        }
        lanes_.lanes[0].kept_out.store(what.kept_out ? 1 : 0);
    }
    // As named_mutex_linux.cpp does it with what a handle gives.
    std::uint32_t lock(int thread, std::int64_t until)
    {
        robust_mutex & lane = lane_of(thread);
        robust_caller const self = caller(thread);
        if (lane.crossed.load() == 0 && take_free(lane, self, lane.state.load())) {
            if (lane.crossed.load() == 0) {
                return wait_object_0;
            }
            uninterrupted const guard;
            free_and_wake(lane, self);
        }
        for (;;) {
            uninterrupted const guard;
            std::uint32_t const result = wait_for(lanes_, lane, self, until);
            if (result != wait_stopped) {
                return result;
            }
        }
    }
    bool unlock(int thread)
    {
        robust_mutex & lane = lane_of(thread);
        robust_caller const self = caller(thread);
        std::uint64_t const state = lane.state.load();
        if (is_mine(lane, self, state) && lane.ownership.more_holds.load() == 0
            && lane.crossed.load() == 0 && give_back_unwatched(lane, self, state)) {
            return true;
        }
        uninterrupted const guard;
        return give_back(lanes_, lane, self);
    }
    void end() { }
    bool close() { return false; }

    static bool is_elsewhere(layout const & what, int thread)
    {
        return what.crossed && thread == 1;
    }

private:
    robust_mutex & lane_of(int thread) { return lanes_.lanes[crossed_ && thread == 1 ? 1 : 0]; }
    static robust_caller caller(int thread)
    {
        return {robust_list::own(), host_number(), static_cast<std::uint64_t>(thread) + 1000};
    }

    mutex_lanes lanes_{};
    bool crossed_;
};

template <class Mutex> class mutexes : public scenario {
public:
    explicit mutexes(layout const & what)
        : layout_(what)
    {
    }
    int threads() const override
    {
        return static_cast<int>(std::count_if(std::begin(layout_.programs),
                                              std::end(layout_.programs),
                                              [](char const * text) { return text != nullptr; }));
    }
    void begin() override { new (&mutex_) Mutex(layout_); }
    bool dies_anywhere(int) const override { return Mutex::is_shared; }
    std::uint32_t number(int thread) const override
    {
        return 101 + (layout_.crossed && thread == 1 ? 0 : static_cast<unsigned>(thread));
    }
    char const * title(int thread) const override
    {
        static char titles[most_threads][16];
        std::snprintf(titles[thread], sizeof titles[0], "%c:%s", 'A' + thread,
                      thread < threads() ? layout_.programs[thread] : "audit");
        return titles[thread];
    }

    void run(int thread) override
    {
        for (char const * step = layout_.programs[thread]; *step != '\0'; ++step) {
            call(thread, *step);
        }
        if (holds_[thread] != 0) { // of a closed handle
            call(thread, 'E');
        }
    }
    // Nobody that lives has it any more, so that it can be had at once.
    void audit() override
    {
        if (closed_ != (closings_ == 1)) {
            fail("closed not once");
        }
        if (!closed_) {
            call(threads(), 'T');
            if (holds_[threads()] == 0) {
                fail("the mutex is nobody's and cannot be had");
            }
        }
    }

    void killed(int thread) override
    {
        if (holds_[thread] != 0) {
            holds_[thread] = 0;
            death_ = calls_[thread] == 'U' ? maybe : certain;
        } else if (calls_[thread] != 0 && death_ == none) {
            death_ = maybe;
        }
        calls_[thread] = 0;
    }
    void quiet() override
    {
        bool const is_held = std::any_of(std::begin(holds_), std::end(holds_),
                                         [](int holds) { return holds != 0; });
        for (int i = 0; i < threads(); ++i) {
            // One that is parked in its call may have the mutex already.
            if (is_held || (condition_of(i) == condition::parked && calls_[i] != 0)) {
                return;
            }
        }
        for (int i = 0; i < threads(); ++i) {
            // Who stands back, or waits for another namespace, does so for a few milliseconds.
            if (condition_of(i) == condition::asleep && !layout_.kept_out && !layout_.crossed) {
                fail("sleeps beside a free mutex");
            }
        }
    }

private:
    enum death : std::uint8_t { none, maybe, certain };

    void call(int thread, char operation)
    {
        if (operation == 'U' && holds_[thread] == 0) {
            return;
        }
        note((std::string("calls ") + operation).c_str());
        calls_[thread] = operation;
        if (operation == 'U') {
            bool const last = holds_[thread] == 1;
            if (last) {
                holds_[thread] = 0; // from now on another one may have it
            }
            bool const done = mutex_.unlock(thread);
            if (!done && !closed_) {
                fail("the owner could not unlock");
            }
            holds_[thread] += done == last ? 0 : done ? -1 : 1;
        } else if (operation == 'E') {
            if (holds_[thread] != 0) {
                holds_[thread] = 0;
                death_ = certain;
            }
            mutex_.end();
        } else if (operation == 'C') {
            closed_ = true;
            closings_ += mutex_.close() ? 1 : 0;
            if (closings_ > 1) {
                fail("closed twice");
            }
        } else {
            std::uint32_t const result = mutex_.lock(thread,
                                                     operation == 'L'       ? -1
                                                         : operation == 'l' ? 1000
                                                                            : 0);
            taken(thread, operation, result);
        }
        calls_[thread] = 0;
        note("has returned");
    }

    void taken(int thread, char operation, std::uint32_t result)
    {
        if (result == wait_timeout) {
            if (operation == 'L') {
                fail("a wait without limit timed out");
            }
            return;
        }
        if (result == wait_failed) {
            if (!closed_) {
                fail("a wait failed");
            }
            return;
        }
        for (int i = 0; i <= threads(); ++i) {
            if (i != thread && holds_[i] != 0) {
                fail("two threads have the mutex");
            }
        }
        if (holds_[thread]++ == 0) {
            if ((result == wait_abandoned) != (death_ == certain) && death_ != maybe) {
                fail(death_ == none ? "told of a death that was none" : "not told of a death");
            }
            death_ = none;
        } else if (result != wait_object_0) {
            fail("told of its own death");
        }
    }

    layout layout_;
    int holds_[most_threads] = {};
    char calls_[most_threads] = {};
    death death_ = none;
    bool closed_ = false;
    int closings_ = 0;
    union {
        Mutex mutex_;
    };
};

std::string name_of(char const * who, layout const & what, bounds const & limits)
{
    std::string name
        = std::string(who) + (what.kept_out ? " kept_out" : "") + (what.crossed ? " crossed" : "");
    for (char const * const program : what.programs) {
        name += program == nullptr ? "" : " " + std::string(program);
    }
    return name + " p" + std::to_string(limits.preemptions) + "k" + std::to_string(limits.kills)
        + "s" + std::to_string(limits.stops);
}

} // namespace

void add_mutexes(std::vector<entry> & entries)
{
    char const * const shared[] = {"LU", "lU", "TU", "LLUU", nullptr};
    char const * const unnamed[] = {"LU", "lU", "TU", "LLUU", "LE", "C", nullptr};
    constexpr bounds all[] = {{3, 0, 0}, {2, 1, 0}, {2, 0, 1}, {1, 1, 1}};
    auto const for_each_triple = [](char const * const * first, auto add) {
        for (char const * const * a = first; *a != nullptr; ++a) {
            for (char const * const * b = a; *b != nullptr; ++b) {
                for (char const * const * c = b;; ++c) {
                    add(*a, *b, *c);
                    if (*c == nullptr) {
                        break;
                    }
                }
            }
        }
    };
    for (bool const kept_out : {false, true}) {
        for_each_triple(unnamed, [&](char const * a, char const * b, char const * c) {
            layout const what{{a, b, c}, kept_out, false};
            for (bounds const limits : {bounds{3, 0, 0}, bounds{2, 0, 1}}) {
                entries.push_back(make_entry<mutexes<unnamed_mutex>>(
                    name_of("unnamed mutex", what, limits), limits, false, what));
            }
        });
        for_each_triple(shared, [&](char const * a, char const * b, char const * c) {
            layout const what{{a, b, c}, kept_out, false};
            for (bounds const limits : all) {
                // Stops among three threads take minutes: a run by hand, once after a change.
                if (limits.stops > 0 && c != nullptr) {
                    continue;
                }
                entries.push_back(make_entry<mutexes<shared_mutex>>(
                    name_of("named mutex", what, limits), limits, false, what));
            }
        });
    }
    for (char const * const a : {"LU", "lU", "TU"}) {
        for (char const * const b : {"LU", "lU", "TU"}) {
            for (char const * const c : {static_cast<char const *>(nullptr), "LU", "lU"}) {
                layout const what{{a, b, c}, false, true};
                for (bounds const limits : {bounds{2, 0, 0}, bounds{1, 1, 0}, bounds{1, 0, 1}}) {
                    entries.push_back(make_entry<mutexes<shared_mutex>>(
                        name_of("named mutex", what, limits), limits, false, what));
                }
            }
        }
    }
    layout const three{{"LULUTU", "lULULU", "LUTUlU"}, false, false};
    layout const apart{{"LULUTU", "lULULU", "LUTUlU"}, false, true};
    for (bounds const limits : {bounds{0, 1, 1}, bounds{0, 2, 0}}) {
        entries.push_back(make_entry<mutexes<shared_mutex>>(name_of("named mutex", three, limits),
                                                            limits, true, three));
        entries.push_back(make_entry<mutexes<shared_mutex>>(name_of("named mutex", apart, limits),
                                                            limits, true, apart));
    }
    bounds const stops{0, 0, 2};
    entries.push_back(make_entry<mutexes<unnamed_mutex>>(name_of("unnamed mutex", three, stops),
                                                         stops, true, three));
}

} // namespace zel::explorer
