// SPDX-License-Identifier: MIT
// Mutexes: without a name by their handles, and those in shared memory by their
// lanes. Operations: 'L' a lock without limit, 'l' one with, 'T' only a test,
// 'U' an unlock and 'E' the orderly end of a thread, both if it has the mutex,
// 'C' the handle is closed.
#include "tests/explorer/scenarios.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/objects/mutex_lanes_linux.h"
#include "zel/platform/objects/unnamed_mutex_linux.h"
#include "zel/platform/waits/uninterrupted.h"

namespace zel::explorer {
namespace {

using namespace zel::platform;

struct settings {
    bool kept_out; // somebody has waited for long
    bool crossed; // the second thread is in another namespace, with the first
        // one's number
};

class unnamed_mutex {
public:
    static constexpr bool is_shared = false;

    explicit unnamed_mutex(settings const & what)
    {
        handle_blocks[0].store(slots_);
        handle_ = create_unnamed_mutex(false);
        mutex_room_of(slots_[0]).kept_out.store(what.kept_out ? 1 : 0);
    }
    std::uint32_t lock(int, bool waits, bool has_limit)
    {
        return take_free_mutex(slots_[0], handle_, host_number())
            ? wait_object_0
            : wait_for_unnamed_mutex(slots_[0], handle_,
                                     !waits          ? 0
                                         : has_limit ? 1000
                                                     : infinite);
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

    explicit shared_mutex(settings const & what)
        : crossed_(what.crossed)
    {
        for (std::uint64_t space = 7; space < (what.crossed ? 9 : 8); ++space) {
            find_lane(lanes_, space);
        }
        lanes_.lanes[0].kept_out.store(what.kept_out ? 1 : 0);
    }
    // As named_mutex_linux.cpp does it with what a handle gives.
    std::uint32_t lock(int thread, bool waits, bool has_limit)
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
            std::uint32_t const result = wait_for(lanes_, lane, self,
                                                  !waits          ? 0
                                                      : has_limit ? 1000
                                                                  : -1);
            if (result != wait_stopped) {
                return result;
            }
        }
    }
    bool unlock(int thread)
    {
        robust_mutex & lane = lane_of(thread);
        robust_caller const self = caller(thread);
        std::uint64_t const now = lane.state.load();
        if (is_mine(lane, self, now) && lane.ownership.more_holds.load() == 0
            && lane.crossed.load() == 0 && give_back_unwatched(lane, self, now)) {
            return true;
        }
        uninterrupted const guard;
        return give_back(lanes_, lane, self);
    }
    void end() { }
    bool close() { return false; }

private:
    robust_mutex & lane_of(int thread) { return lanes_.lanes[crossed_ && thread == 1 ? 1 : 0]; }
    static robust_caller caller(int thread)
    {
        return {robust_list::own(), host_number(), static_cast<std::uint64_t>(thread) + 1000};
    }

    mutex_lanes lanes_{};
    bool crossed_;
};

template <class Mutex> class mutex : public scenario {
public:
    mutex(entry const & what, settings const & how)
        : scenario(what)
        , how_(how)
    {
        begin_in({});
    }
    void begin() override { new (&mutex_) Mutex(how_); }
    bool dies_anywhere() const override { return Mutex::is_shared; }
    std::uint32_t number(int thread) const override
    {
        return scenario::number(how_.crossed && thread == 1 ? 0 : thread);
    }

private:
    bool applies(int thread, char operation) const override
    {
        return holds_[thread] != 0 || (operation != 'U' && operation != 'E');
    }

    progress call(int thread, char operation) override
    {
        bool success = true;
        switch (operation) {
        case 'U':
            success = mutex_.unlock(thread);
            holds_[thread] -= success ? 1 : 0;
            return success ? done : failed;
        case 'E':
            mutex_.end();
            return done;
        case 'C':
            return mutex_.close() ? done : failed;
        default:
            break;
        }
        std::uint32_t const result = mutex_.lock(thread, operation != 'T', operation == 'l');
        success = result == wait_object_0 || result == wait_abandoned;
        holds_[thread] += success ? 1 : 0;
        return result == wait_object_0 ? done
            : result == wait_abandoned ? abandoned
            : result == wait_timeout   ? refused
                                       : failed;
    }

    // First nobody waits for it any more, then what is one exchange fails, too.
    enum handle_life : std::int8_t { open, closing, closed };

    // A thread that stands back, or waits for another namespace, does so for a
    // few milliseconds.
    bool may_sleep(state const & s) const override { return s.owner != 0 || is_patient(); }
    bool is_patient() const { return how_.kept_out || how_.crossed; }

    void take_effect(state s, int thread, char operation) override
    {
        auto const self = static_cast<std::int8_t>(thread + 1);
        bool const is_mine = s.owner == self;
        switch (operation) {
        case 'U':
            if (s.closed == closed) { // or it has looked at the handle before
                add(s.with(thread, failed));
            }
            if (is_mine) {
                s.owner = s.units == 1 ? std::int8_t{0} : self;
                --s.units;
                add(s.with(thread, done));
            }
            break;
        case 'E':
        case 'k':
            if (is_mine) {
                s.owner = s.units = 0;
                s.died = 1;
            }
            add(s.with(thread, done));
            break;
        case 'C':
            if (s.what[static_cast<std::size_t>(thread)] == pending && s.closed != open) {
                add(s.with(thread, failed));
            } else {
                progress const next = s.closed == open ? partly : done;
                ++s.closed;
                add(s.with(thread, next));
            }
            break;
        default:
            lock(s, thread, operation);
        }
    }

    void lock(state s, int thread, char operation)
    {
        auto const self = static_cast<std::int8_t>(thread + 1);
        bool const begins = s.what[static_cast<std::size_t>(thread)] == pending;
        bool const is_free = s.owner == 0;
        if (begins && s.closed != open) {
            add(s.with(thread, failed));
            if (s.closed == closed) {
                return;
            }
        }
        // Who waits keeps what it waits for, although the handle is closed.
        if (begins && (!is_free || is_patient())) {
            add(s.with(thread, waiting));
        }
        if (operation == 'T' && ((!is_free && s.owner != self) || how_.crossed)) {
            add(s.with(thread, refused));
        }
        if (is_free || s.owner == self) {
            s.owner = self;
            ++s.units;
            progress const result = s.died != 0 ? abandoned : done;
            s.died = 0;
            add(s.with(thread, result));
        }
    }

    settings how_;
    int holds_[most_threads] = {};
    union {
        Mutex mutex_;
    };
};

} // namespace

void add_mutexes(std::vector<entry> & entries)
{
    for (bool const kept_out : {false, true}) {
        std::string const suffix = kept_out ? " kept_out" : "";
        settings const how{kept_out, false};
        for_each_group({"LUE", "lUE", "TUE", "LLUUE", "LE", "C"},
                       [&](std::vector<std::string> const & programs) {
                           add<mutex<unnamed_mutex>>(entries, "unnamed mutex" + suffix, programs,
                                                     "T", {3, 0, 1}, false, how);
                       });
        for_each_group({"LU", "lU", "TU", "LLUU"}, [&](std::vector<std::string> const & programs) {
            // Stops among three threads take minutes: a run by hand,
            // once after a change.
            int const stops = programs.size() < 3 ? 1 : 0;
            add<mutex<shared_mutex>>(entries, "named mutex" + suffix, programs, "T", {3, 1, stops},
                                     false, how);
        });
    }
    settings const crossed{false, true};
    for (char const * const a : {"LU", "lU", "TU"}) {
        for (char const * const b : {"LU", "lU", "TU"}) {
            for (char const * const c : {"", "LU", "lU"}) {
                std::vector<std::string> programs{a, b, c};
                programs.resize(*c == '\0' ? 2 : 3);
                add<mutex<shared_mutex>>(entries, "named mutex crossed", programs, "T", {2, 1, 1},
                                         false, crossed);
            }
        }
    }
    std::vector<std::string> const three{"LULUTU", "lULULU", "LUTUlU"};
    for (bounds const limits : {bounds{2, 1, 1}, bounds{2, 2, 0}}) {
        add<mutex<shared_mutex>>(entries, "named mutex", three, "T", limits, true, settings{});
        add<mutex<shared_mutex>>(entries, "named mutex crossed", three, "T", limits, true, crossed);
    }
    add<mutex<unnamed_mutex>>(entries, "unnamed mutex", three, "T", {2, 0, 2}, true, settings{});
}

} // namespace zel::explorer
