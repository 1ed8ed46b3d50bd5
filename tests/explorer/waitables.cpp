// SPDX-License-Identifier: MIT
// Events and semaphores, without a name and in shared memory. Operations: 'w' a wait without limit,
// 'l' one with, 't' only a test, 's' set, 'r' reset, 'p' pulse, '1' and '2' a release of so many.
#include "tests/explorer/scenarios.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/objects/named_waitable_linux.h"
#include "zel/platform/objects/robust_mutex_linux.h"
#include "zel/platform/objects/unnamed_objects.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/uninterrupted.h"

namespace zel::explorer {
namespace {

using namespace zel::platform;

struct settings {
    char const * name;
    handle_kind kind;
    int initial;
    int maximum;
    std::initializer_list<char const *> operations;
    char const * audit; // takes what is there
    char const * drawn; // what longer programs are made of
};

settings const all[] = {
    {"event 0/1",
     handle_kind::auto_event,
     0,
     1,
     {"w", "l", "t", "s", "r", "p"},
     "tt",
     "wwlltsssrp"},
    {"manual event 0/1",
     handle_kind::manual_event,
     0,
     1,
     {"w", "l", "t", "s", "r", "p"},
     "t",
     "wwlltsssrp"},
    {"semaphore 0/2", handle_kind::semaphore, 0, 2, {"w", "l", "t", "1", "2"}, "ttt", "wwllt11122"},
    {"semaphore 1/2", handle_kind::semaphore, 1, 2, {"w", "l", "t", "1", "2"}, "ttt", "wwllt11122"},
};

class named_object {
public:
    static constexpr bool is_shared = true;

    explicit named_object(settings const & what)
    {
        initialize(memory_, static_cast<unsigned>(what.initial),
                   static_cast<unsigned>(what.maximum), what.kind == handle_kind::manual_event);
    }
    // As long as it is stopped it has nothing of the object's; see wait_for_single_object.
    std::uint32_t wait(std::uint32_t milliseconds)
    {
        for (;;) {
            uninterrupted const guard;
            auto const result
                = wait_for(memory_, milliseconds == 0 ? 0 : moment_after(milliseconds));
            if (result != wait_stopped) {
                return result;
            }
        }
    }
    bool change(char operation)
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

class unnamed_object {
public:
    static constexpr bool is_shared = false;

    explicit unnamed_object(settings const & what)
    {
        handle_blocks[0].store(slots_);
        handle_ = create_unnamed(what.kind, static_cast<unsigned>(what.initial),
                                 static_cast<unsigned>(what.maximum));
    }
    std::uint32_t wait(std::uint32_t milliseconds)
    {
        return wait_for_unnamed(slots_[0], handle_, milliseconds);
    }
    bool change(char operation)
    {
        return operation == 's' ? set_unnamed_event(slots_[0], handle_)
            : operation == 'r'  ? reset_unnamed_event(slots_[0], handle_)
            : operation == 'p'
            ? pulse_unnamed_event(slots_[0], handle_)
            : release_unnamed_semaphore(slots_[0], handle_, static_cast<unsigned>(operation - '0'),
                                        nullptr);
    }

private:
    handle_slot slots_[2]{};
    void * handle_;
};

template <class Object> class waitable : public scenario {
public:
    waitable(entry const & what, settings const * how)
        : scenario(what)
        , how_(how)
    {
        state first;
        first.units = static_cast<std::int8_t>(how->initial);
        begin_in(first);
    }
    void begin() override { new (&object_) Object(*how_); }
    bool dies_anywhere() const override { return Object::is_shared; }

private:
    progress call(int, char operation) override
    {
        bool const waits = operation == 'w' || operation == 'l' || operation == 't';
        if (!waits) {
            return object_.change(operation) ? done : refused;
        }
        std::uint32_t const result = object_.wait(operation == 'w'       ? infinite
                                                      : operation == 'l' ? 1000
                                                                         : 0);
        return result == wait_object_0 ? done : result == wait_timeout ? refused : failed;
    }

    bool is_manual() const { return how_->kind == handle_kind::manual_event; }

    static void let_first_through(state & s)
    {
        int const first = s.queue[0];
        s.leave_queue(first);
        s = s.with(first, done);
    }

    void take_effect(state s, int thread, char operation) override
    {
        if (s.what[static_cast<std::size_t>(thread)] == waiting) {
            return;
        }
        switch (operation) {
        case 'w':
        case 'l':
        case 't':
            if (s.units > 0) {
                s.units = static_cast<std::int8_t>(s.units - (is_manual() ? 0 : 1));
                add(s.with(thread, done));
            } else if (operation == 't') {
                add(s.with(thread, refused));
            } else {
                s.queue[static_cast<std::size_t>(s.length++)] = static_cast<std::int8_t>(thread);
                add(s.with(thread, waiting));
            }
            break;
        case 's':
        case 'r':
        case 'p':
            change(s.with(thread, done), operation);
            break;
        case 'k':
            add(s.with(thread, done));
            break;
        default:
            release(s, thread, operation - '0');
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
        } while (is_manual() && operation != 'r' && s.length > 0);
        if (operation == 's' && (is_manual() || !had_waiters)) {
            s.units = 1;
        }
        add(s);
    }

    // In shared memory a release of several units may let waiters through one after the other; when
    // the rest is refused then, it takes as many out of what others have put down.
    void release(state s, int thread, int count)
    {
        std::int8_t & given = s.given[static_cast<std::size_t>(thread)];
        auto const left = static_cast<std::int8_t>(count - given);
        if (s.units + left > how_->maximum) {
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

    settings const * how_;
    union {
        Object object_;
    };
};

void add_both(std::vector<entry> & entries, settings const & what,
              std::vector<std::string> const & programs, bounds limits, bool is_long)
{
    add<waitable<named_object>>(entries, std::string("named ") + what.name, programs, what.audit,
                                limits, is_long, &what);
    add<waitable<unnamed_object>>(entries, std::string("unnamed ") + what.name, programs,
                                  what.audit, limits, is_long, &what);
}

} // namespace

void add_waitables(std::vector<entry> & entries)
{
    std::uint64_t random = 88172645463325252;
    for (settings const & what : all) {
        for_each_group(what.operations, [&](std::vector<std::string> const & programs) {
            add_both(entries, what, programs, {3, 1, 1}, false);
        });
        // Of five operations each, drawn once and for all.
        for (int i = 0; i < 12; ++i) {
            std::vector<std::string> programs(3, "01234");
            for (std::string & program : programs) {
                for (char & operation : program) {
                    random ^= random << 13;
                    random ^= random >> 7;
                    random ^= random << 17;
                    operation = what.drawn[random % 10];
                }
            }
            add_both(entries, what, programs, {3, 1, 2}, true);
        }
    }
}

} // namespace zel::explorer
