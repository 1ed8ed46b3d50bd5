// SPDX-License-Identifier: MIT
// Events and semaphores, without a name and in shared memory.
#include "tests/explorer/promise.h"
#include "tests/explorer/scenarios.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/objects/named_waitable_linux.h"
#include "zel/platform/objects/robust_mutex_linux.h"
#include "zel/platform/objects/unnamed_objects.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include <cstring>

namespace zel::explorer {
namespace {

using namespace zel::platform;

// An object and its operations, by their letters in promise.h; a wait gives its result.
struct named_object {
    static constexpr bool is_shared = true;
    named_waitable memory{};

    named_object(sort kind, unsigned initial, unsigned maximum)
    {
        initialize(memory, initial, maximum, kind == sort::manual);
    }
    // As long as it is stopped it has nothing of the object's; see wait_for_single_object.
    std::uint32_t wait(std::uint32_t milliseconds)
    {
        for (;;) {
            uninterrupted const guard;
            auto const result
                = wait_for(memory, milliseconds == 0 ? 0 : moment_after(milliseconds));
            if (result != wait_stopped) {
                return result;
            }
        }
    }
    bool change(char operation)
    {
        uninterrupted const guard;
        return operation == 's' ? set(memory)
            : operation == 'r'  ? reset(memory)
            : operation == 'p'  ? pulse(memory)
                                : release(memory, static_cast<unsigned>(operation - '0'), nullptr);
    }
};

struct unnamed_object {
    static constexpr bool is_shared = false;
    handle_slot slots[2]{};
    void * handle;

    unnamed_object(sort kind, unsigned initial, unsigned maximum)
    {
        constexpr handle_kind kinds[]
            = {handle_kind::auto_event, handle_kind::manual_event, handle_kind::semaphore};
        handle_blocks[0].store(slots);
        handle = create_unnamed(kinds[static_cast<int>(kind)], initial, maximum);
    }
    std::uint32_t wait(std::uint32_t milliseconds)
    {
        return wait_for_unnamed(slots[0], handle, milliseconds);
    }
    bool change(char operation)
    {
        return operation == 's' ? set_unnamed_event(slots[0], handle)
            : operation == 'r'  ? reset_unnamed_event(slots[0], handle)
            : operation == 'p'
            ? pulse_unnamed_event(slots[0], handle)
            : release_unnamed_semaphore(slots[0], handle, static_cast<unsigned>(operation - '0'),
                                        nullptr);
    }
};

struct layout {
    sort kind;
    int initial;
    int maximum;
    char const * programs[most_threads - 1]; // null: no such thread
};

template <class Object, int most_states> class waitables : public scenario {
public:
    explicit waitables(layout const & what)
        : layout_(what)
        , promise_(what.kind, what.initial, what.maximum, Object::is_shared)
    {
    }
    int threads() const override
    {
        return static_cast<int>(std::count_if(std::begin(layout_.programs),
                                              std::end(layout_.programs),
                                              [](char const * text) { return text != nullptr; }));
    }
    void begin() override
    {
        new (&object_) Object(layout_.kind, static_cast<unsigned>(layout_.initial),
                              static_cast<unsigned>(layout_.maximum));
    }
    void run(int thread) override
    {
        for (char const * step = layout_.programs[thread]; *step != '\0'; ++step) {
            call(thread, *step);
        }
    }
    // Takes what is there: a test takes effect, as everything else does.
    void audit() override
    {
        int const self = threads();
        for (int left = layout_.kind == sort::manual ? 1 : layout_.maximum + 1; left > 0; --left) {
            if (!call(self, 't')) {
                break;
            }
        }
    }
    bool dies_anywhere(int) const override { return Object::is_shared; }
    char const * title(int thread) const override
    {
        static char titles[most_threads][16];
        std::snprintf(titles[thread], sizeof titles[0], "%c:%s", 'A' + thread,
                      thread < threads() ? layout_.programs[thread] : "audit");
        return titles[thread];
    }
    void fell_asleep(int thread) override { promise_.fell_asleep(thread); }
    void disturbed(int thread) override { promise_.disturbed(thread); }
    void killed(int thread) override { promise_.killed(thread); }
    void quiet() override
    {
        for (int i = 0; i < threads(); ++i) {
            promise_.quiet(i, condition_of(i));
        }
    }

private:
    bool call(int thread, char operation)
    {
        note((std::string("calls ") + operation).c_str());
        promise_.called(thread, operation);
        bool success;
        if (is_wait(operation)) {
            std::uint32_t const result = object_.wait(operation == 'w'       ? infinite
                                                          : operation == 'l' ? 1000
                                                                             : 0);
            success = result == wait_object_0;
            if (!success && result != wait_timeout) {
                fail("a wait failed");
            }
        } else {
            success = object_.change(operation);
        }
        note(success ? "has returned: yes" : "has returned: no");
        promise_.returned(thread, success);
        return success;
    }

    layout layout_;
    promise<most_states> promise_;
    union {
        Object object_;
    };
};

std::string name_of(char const * who, layout const & what)
{
    constexpr char const * kinds[] = {"event", "manual event", "semaphore"};
    std::string name = std::string(who) + " " + kinds[static_cast<int>(what.kind)] + " "
        + std::to_string(what.initial) + "/" + std::to_string(what.maximum);
    for (char const * const program : what.programs) {
        name += program == nullptr ? "" : " " + std::string(program);
    }
    return name;
}

template <int most_states>
void add(std::vector<entry> & entries, layout const & what, bounds const & limits, bool is_long)
{
    std::string const suffix = " p" + std::to_string(limits.preemptions) + "k"
        + std::to_string(limits.kills) + "s" + std::to_string(limits.stops);
    entries.push_back(make_entry<waitables<named_object, most_states>>(
        name_of("named", what) + suffix, limits, is_long, what));
    entries.push_back(make_entry<waitables<unnamed_object, most_states>>(
        name_of("unnamed", what) + suffix, limits, is_long, what));
}

constexpr layout kinds[] = {{sort::automatic, 0, 1, {}},
                            {sort::manual, 0, 1, {}},
                            {sort::semaphore, 0, 2, {}},
                            {sort::semaphore, 1, 2, {}}};

// Every two and three operations beside each other.
void add_pairs_and_triples(std::vector<entry> & entries, layout what)
{
    char const * const all[] = {"w", "l", "t", "1", "2", nullptr};
    char const * const of_events[] = {"w", "l", "t", "s", "r", "p", nullptr};
    bool const counts = what.kind == sort::semaphore;
    char const * const * const first = counts ? all : of_events;
    for (char const * const * a = first; *a != nullptr; ++a) {
        for (char const * const * b = a; *b != nullptr; ++b) {
            for (char const * const * c = b;; ++c) {
                what.programs[0] = *a;
                what.programs[1] = *b;
                what.programs[2] = *c;
                for (bounds const limits :
                     {bounds{3, 0, 0}, bounds{2, 1, 0}, bounds{2, 0, 1}, bounds{1, 1, 1}}) {
                    add<64>(entries, what, limits, false);
                }
                if (*c == nullptr) {
                    break;
                }
            }
        }
    }
}

// Threads with five operations each, drawn once and for all.
void add_long_ones(std::vector<entry> & entries, layout what)
{
    static char programs[std::size(kinds)][12][most_threads - 1][6];
    char const * const operations = what.kind == sort::semaphore ? "wwllt11122" : "wwlltsssrp";
    std::uint64_t drawn = 88172645463325252;
    for (auto & three : programs[static_cast<int>(what.kind) + what.initial]) {
        for (std::size_t i = 0; i < std::size(three); ++i) {
            for (std::size_t k = 0; k < 5; ++k) {
                drawn ^= drawn << 13;
                drawn ^= drawn >> 7;
                drawn ^= drawn << 17;
                three[i][k] = operations[drawn % 10];
            }
            what.programs[i] = three[i];
        }
        add<256>(entries, what, {0, 1, 2}, true);
    }
}

} // namespace

void add_waitables(std::vector<entry> & entries)
{
    for (layout const & what : kinds) {
        add_pairs_and_triples(entries, what);
        add_long_ones(entries, what);
    }
}

} // namespace zel::explorer
