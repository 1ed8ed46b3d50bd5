// SPDX-License-Identifier: MIT
// Events, semaphores and mutexes, without a name and in shared memory. Operations: 'w' a wait
// without limit, 'l' one with, 't' only a test; of events 's' set, 'r' reset, 'p' pulse; of
// semaphores '1' and '2' a release of so many; of mutexes 'u' an unlock and 'e' the orderly end of
// a thread, both if it has the mutex, and 'c', its handle is closed.
#include "zel/platform/kernel_objects.h"

#include "tests/explorer/scenario.h"
#include "zel/platform/objects/mutex_lanes_linux.h"
#include "zel/platform/objects/named_waitable_linux.h"
#include "zel/platform/objects/unnamed_mutex_linux.h"
#include "zel/platform/objects/unnamed_objects.h"
#include "zel/platform/waits/uninterrupted.h"
#include <random>

namespace zel::explorer {
namespace {

using namespace zel::platform;

constexpr bounds usual{3, 1, 1};

struct settings {
    char const * name;
    handle_kind kind;
    int initial, maximum;
    std::initializer_list<char const *> operations; // longer programs are drawn from the first five
    char const * audit; // takes what is there
    bounds for_two = usual, for_three = usual; // threads
    bool kept_out = false; // somebody has waited for long
    bool crossed = false; // the second thread is in another namespace, with the first one's number
};

constexpr handle_kind event = handle_kind::auto_event;
constexpr handle_kind manual = handle_kind::manual_event;
constexpr handle_kind semaphore = handle_kind::semaphore;
constexpr handle_kind mutex = handle_kind::mutex;

settings const waitables[] = {
    {"event 0/1", event, 0, 1, {"w", "l", "s", "p", "t", "r"}, "tt"},
    {"manual event 0/1", manual, 0, 1, {"w", "l", "s", "p", "t", "r"}, "t"},
    {"semaphore 0/2", semaphore, 0, 2, {"w", "l", "t", "1", "2"}, "ttt"},
    {"semaphore 1/2", semaphore, 1, 2, {"w", "l", "t", "1", "2"}, "ttt"},
};
settings const unnamed_mutexes[] = {
    {"mutex", mutex, 0, 0, {"wue", "lue", "tue", "wwuue", "we", "c"}, "t", {3, 0, 1}, {3, 0, 1}},
    {"mutex kept_out", mutex, 0, 0, {"wue", "lue", "tue"}, "t", {3, 0, 1}, {2, 0, 1}, true},
};
// Stops among three threads take minutes: a run by hand, once after a change.
settings const named_mutexes[] = {
    {"mutex", mutex, 0, 0, {"wu", "lu", "tu", "wwuu"}, "t", {3, 1, 1}, {3, 1, 0}},
    {"mutex kept_out", mutex, 0, 0, {"wu", "lu", "tu"}, "t", {3, 1, 1}, {2, 1, 0}, true},
    {"mutex crossed", mutex, 0, 0, {"wu", "lu", "tu"}, "t", {2, 1, 1}, {2, 1, 1}, false, true},
};

// As long as the thread is stopped it has nothing of the object's; see wait_for_single_object.
template <class Wait> std::uint32_t wait_again_after_stops(std::uint32_t milliseconds, Wait wait)
{
    for (;;) {
        uninterrupted const guard;
        auto const result = wait(milliseconds == 0 ? 0 : moment_after(milliseconds));
        if (result != wait_stopped) {
            return result;
        }
    }
}

class named_object {
public:
    static constexpr bool is_shared = true;

    explicit named_object(settings const & what)
    {
        initialize(memory_, static_cast<unsigned>(what.initial),
                   static_cast<unsigned>(what.maximum), what.kind == manual);
    }
    std::uint32_t wait(int, std::uint32_t milliseconds)
    {
        return wait_again_after_stops(
            milliseconds, [this](std::int64_t until) { return wait_for(memory_, until); });
    }
    bool change(int, char operation)
    {
        uninterrupted const guard;
        return operation == 's' ? set(memory_)
            : operation == 'r'  ? reset(memory_)
            : operation == 'p'  ? pulse(memory_)
                                : release(memory_, static_cast<unsigned>(operation - '0'), nullptr);
    }

private:
    named_waitable memory_{};
};

class unnamed {
public:
    static constexpr bool is_shared = false;

protected:
    unnamed() { handle_blocks[0].store(slots_); }

    handle_slot slots_[2]{};
    handle_slot & slot_ = slots_[0];
    void * handle_ = nullptr;
};

class unnamed_object : unnamed {
public:
    using unnamed::is_shared;

    explicit unnamed_object(settings const & what)
    {
        handle_ = create_unnamed(what.kind, static_cast<unsigned>(what.initial),
                                 static_cast<unsigned>(what.maximum));
    }
    std::uint32_t wait(int, std::uint32_t milliseconds)
    {
        return wait_for_unnamed(slot_, handle_, milliseconds);
    }
    bool change(int, char operation)
    {
        auto const count = static_cast<unsigned>(operation - '0');
        return operation == 's' ? set_unnamed_event(slot_, handle_)
            : operation == 'r'  ? reset_unnamed_event(slot_, handle_)
            : operation == 'p'  ? pulse_unnamed_event(slot_, handle_)
                                : release_unnamed_semaphore(slot_, handle_, count, nullptr);
    }
};

class unnamed_mutex : unnamed {
public:
    using unnamed::is_shared;

    explicit unnamed_mutex(settings const & what)
    {
        handle_ = create_unnamed_mutex(false);
        mutex_room_of(slot_).kept_out.store(what.kept_out ? 1 : 0);
    }
    std::uint32_t wait(int, std::uint32_t milliseconds)
    {
        return take_free_mutex(slot_, handle_, host_number())
            ? wait_object_0
            : wait_for_unnamed_mutex(slot_, handle_, milliseconds);
    }
    bool change(int, char operation)
    {
        if (operation == 'e') {
            abandon_unnamed_mutexes(host_number());
            return true;
        }
        return operation == 'c' ? close_unnamed_mutex(slot_, handle_)
                                : give_back_mutex(slot_, handle_, host_number())
                || release_unnamed_mutex(slot_, handle_);
    }
};

// As named_mutex_linux.cpp does it with what a handle gives.
class shared_mutex {
public:
    static constexpr bool is_shared = true;

    explicit shared_mutex(settings const & what)
        : crossed_(what.crossed)
    {
        for (std::uint64_t space = 7; space < (what.crossed ? 9 : 8); ++space) {
            find_lane(lanes_, space);
        }
        lanes_.lanes[0].kept_out.store(what.kept_out ? 1 : 0);
    }
    std::uint32_t wait(int thread, std::uint32_t milliseconds)
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
        return wait_again_after_stops(
            milliseconds, [&](std::int64_t until) { return wait_for(lanes_, lane, self, until); });
    }
    bool change(int thread, char)
    {
        robust_mutex & lane = lane_of(thread);
        robust_caller const self = caller(thread);
        std::uint64_t const seen = lane.state.load();
        if (is_mine(lane, self, seen) && lane.ownership.more_holds.load() == 0
            && lane.crossed.load() == 0 && give_back_unwatched(lane, self, seen)) {
            return true;
        }
        uninterrupted const guard;
        return give_back(lanes_, lane, self);
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

template <class Object> class kernel_object : public scenario {
public:
    kernel_object(entry const & what, settings const * how)
        : scenario(what, {static_cast<std::int8_t>(how->initial)})
        , how_(*how)
    {
    }
    void begin() override { new (&object_) Object(how_); }
    bool dies_anywhere() const override { return Object::is_shared; }
    std::uint32_t number(int thread) const override
    {
        return scenario::number(how_.crossed && thread == 1 ? 0 : thread);
    }

private:
    bool applies(int thread, char operation) const override
    {
        return holds_[thread] != 0 || (operation != 'u' && operation != 'e');
    }

    progress call(int thread, char operation) override
    {
        if (operation != 'w' && operation != 'l' && operation != 't') {
            bool const success = object_.change(thread, operation);
            holds_[thread] = operation == 'e' ? 0 : holds_[thread];
            holds_[thread] -= success && operation == 'u' ? 1 : 0;
            return success ? done : refused;
        }
        std::uint32_t const limit = operation == 'w' ? infinite : operation == 'l' ? 1000 : 0;
        std::uint32_t const result = object_.wait(thread, limit);
        holds_[thread] += result == wait_object_0 || result == wait_abandoned ? 1 : 0;
        return result == wait_object_0 ? done
            : result == wait_abandoned ? abandoned
            : result == wait_timeout   ? refused
                                       : failed;
    }

    // A thread that stands back, or waits for another namespace, does so for a few milliseconds.
    bool is_patient() const { return how_.kept_out || how_.crossed; }
    bool may_sleep(state const & s) const override
    {
        return how_.kind != mutex || s.owner != 0 || is_patient();
    }

    void take_effect(state s, int thread, char operation) override
    {
        bool const is_waiting = s.what[thread] == waiting;
        bool const waits = operation == 'w' || operation == 'l' || operation == 't';
        if (how_.kind == mutex) {
            waits ? lock(s, thread, operation) : change_mutex(s, thread, operation);
        } else if (waits && !is_waiting) {
            take(s, thread, operation);
        } else if (operation == '1' || operation == '2') {
            release(s, thread, operation - '0');
        } else if (operation == 'k') {
            add(s.with(thread, done));
        } else if (!waits) {
            change(s.with(thread, done), operation);
        }
    }

    /// \name Events and semaphores
    /// @{
    static void let_first_through(state & s)
    {
        int const first = s.queue[0];
        s.leave_queue(first);
        s.what[first] = done;
    }

    void take(state s, int thread, char operation)
    {
        if (s.units > 0) {
            s.units = static_cast<std::int8_t>(s.units - (how_.kind == manual ? 0 : 1));
            add(s.with(thread, done));
        } else if (operation == 't') {
            add(s.with(thread, refused));
        } else {
            s.queue[s.length++] = static_cast<std::int8_t>(thread);
            add(s.with(thread, waiting));
        }
    }

    void change(state s, char operation)
    {
        bool const had_waiters = s.length > 0;
        s.units = operation == 's' ? s.units : std::int8_t{0};
        do {
            if (operation != 'r' && s.length > 0) {
                let_first_through(s);
            }
        } while (how_.kind == manual && operation != 'r' && s.length > 0);
        if (operation == 's' && (how_.kind == manual || !had_waiters)) {
            s.units = 1;
        }
        add(s);
    }

    // In shared memory a release of several units may let waiters through one after the other; when
    // the rest is refused then, it takes as many out of what others have put down.
    void release(state s, int thread, int count)
    {
        std::int8_t & given = s.given[thread];
        auto const left = static_cast<std::int8_t>(count - given);
        if (s.units + left > how_.maximum) {
            s.units = static_cast<std::int8_t>(s.units - given);
            given = 0;
            add(s.with(thread, refused));
        } else if (left == 0 || s.length == 0) {
            s.units = static_cast<std::int8_t>(s.units + left);
            given = 0;
            add(s.with(thread, done));
        } else {
            let_first_through(s);
            ++given;
            if (Object::is_shared && given < count) {
                add(s.with(thread, partly));
            }
            release(s, thread, count);
        }
    }
    /// @}

    /// \name Mutexes
    /// @{
    // First nobody waits for it any more, then what is one exchange fails, too.
    enum handle_life : std::int8_t { open, closing, closed };

    void change_mutex(state s, int thread, char operation)
    {
        bool const is_mine = s.owner == thread + 1;
        if (operation == 'c' && s.closed != open && s.what[thread] == pending) {
            add(s.with(thread, refused));
        } else if (operation == 'c') {
            progress const next = s.closed == open ? partly : done;
            ++s.closed;
            add(s.with(thread, next));
        } else if (operation != 'u') { // a death or an orderly end
            if (is_mine) {
                s.owner = s.units = 0;
                s.died = 1;
            }
            add(s.with(thread, done));
        } else {
            if (s.closed == closed) { // or it has looked at the handle before
                add(s.with(thread, refused));
            }
            if (is_mine) {
                --s.units;
                s.owner = s.units == 0 ? std::int8_t{0} : s.owner;
                add(s.with(thread, done));
            }
        }
    }

    void lock(state s, int thread, char operation)
    {
        bool const begins = s.what[thread] == pending;
        bool const may_take = s.owner == 0 || s.owner == thread + 1;
        if (begins && s.closed != open) {
            add(s.with(thread, failed));
            if (s.closed == closed) {
                return;
            }
        }
        // Who waits keeps what it waits for, although the handle is closed.
        if (begins && (s.owner != 0 || is_patient())) {
            add(s.with(thread, waiting));
        }
        if (operation == 't' && (!may_take || how_.crossed)) {
            add(s.with(thread, refused));
        }
        if (may_take) {
            s.owner = static_cast<std::int8_t>(thread + 1);
            ++s.units;
            progress const result = s.died != 0 ? abandoned : done;
            s.died = 0;
            add(s.with(thread, result));
        }
    }
    /// @}

    settings const & how_;
    int holds_[most_threads] = {};
    union {
        Object object_;
    };
};

template <class Object>
void add_all(std::vector<entry> & entries, char const * form, settings const & what)
{
    std::string const name = std::string(form) + what.name;
    for_each_group(what.operations, what.crossed, [&](std::vector<std::string> const & programs) {
        add<kernel_object<Object>>(entries, name, programs, what.audit,
                                   programs.size() == 2 ? what.for_two : what.for_three, false,
                                   &what);
    });
    // Of five operations each, drawn once and for all.
    std::minstd_rand random(88172645);
    for (int i = 0; i < 10; ++i) {
        std::vector<std::string> programs(3);
        for (int k = 0; k < 15; ++k) {
            auto const choice = random() % std::min<std::size_t>(5, what.operations.size());
            programs[static_cast<std::size_t>(k % 3)] += what.operations.begin()[choice];
        }
        add<kernel_object<Object>>(entries, name, programs, what.audit,
                                   {3, Object::is_shared ? 1 : 0, 2}, true, &what);
    }
}

} // namespace

void add_kernel_objects(std::vector<entry> & entries)
{
    for (settings const & what : waitables) {
        add_all<named_object>(entries, "named ", what);
        add_all<unnamed_object>(entries, "unnamed ", what);
    }
    for (settings const & what : unnamed_mutexes) {
        add_all<unnamed_mutex>(entries, "unnamed ", what);
    }
    for (settings const & what : named_mutexes) {
        add_all<shared_mutex>(entries, "named ", what);
    }
}

} // namespace zel::explorer
