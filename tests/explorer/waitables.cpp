// SPDX-License-Identifier: MIT
// Events and semaphores, without a name and in shared memory.
#include "tests/explorer/promise.h"
#include "tests/explorer/scenarios.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/objects/named_waitable_linux.h"
#include "zel/platform/objects/robust_mutex_linux.h"
#include "zel/platform/objects/unnamed_objects.h"
#include "zel/platform/threads/threads.h"
#include <cstring>

namespace zel::explorer {
namespace {

using namespace zel::platform;

class named_object {
public:
    static constexpr bool is_shared = true;

    named_object(sort kind, int initial, int maximum)
    {
        initialize(object(), static_cast<unsigned>(initial), static_cast<unsigned>(maximum),
                   kind == sort::manual);
    }
    // As long as it is stopped it has nothing of the object's; see wait_for_single_object.
    std::uint32_t wait(std::int64_t until)
    {
        for (;;) {
            uninterrupted const guard;
            std::uint32_t const result = wait_for(object(), until);
            if (result != wait_stopped) {
                return result;
            }
        }
    }
    bool set_event()
    {
        return inside([&] { return set(object()); });
    }
    bool reset_event()
    {
        return inside([&] { return reset(object()); });
    }
    bool pulse_event()
    {
        return inside([&] { return pulse(object()); });
    }
    bool release_units(unsigned count)
    {
        return inside([&] { return release(object(), count, nullptr); });
    }

private:
    template <class Body> bool inside(Body body)
    {
        uninterrupted const guard;
        return body();
    }
    named_waitable & object()
    {
        void * const memory = memory_;
        return *static_cast<named_waitable *>(memory);
    }
    alignas(64) std::byte memory_[512]{}; // as far as it is touched
};

class unnamed_object {
public:
    static constexpr bool is_shared = false;

    unnamed_object(sort kind, int initial, int maximum)
    {
        constexpr handle_kind kinds[]
            = {handle_kind::auto_event, handle_kind::manual_event, handle_kind::semaphore};
        handle_blocks[0].store(slots_);
        handle_ = create_unnamed(kinds[static_cast<int>(kind)], static_cast<unsigned>(initial),
                                 static_cast<unsigned>(maximum));
    }
    std::uint32_t wait(std::int64_t until)
    {
        return wait_for_unnamed(slots_[0], handle_,
                                until < 0 ? infinite : static_cast<std::uint32_t>(until));
    }
    bool set_event() { return set_unnamed_event(slots_[0], handle_); }
    bool reset_event() { return reset_unnamed_event(slots_[0], handle_); }
    bool pulse_event() { return pulse_unnamed_event(slots_[0], handle_); }
    bool release_units(unsigned count)
    {
        return release_unnamed_semaphore(slots_[0], handle_, count, nullptr);
    }

private:
    handle_slot slots_[2]{};
    void * handle_;
};

struct layout {
    sort kind;
    int initial;
    int maximum;
    char const * programs[most_threads - 1]; // null: no such thread
};

template <class Object> class waitables : public scenario {
public:
    explicit waitables(layout const & what)
        : layout_(what)
        , promise_(what.kind, what.initial, what.maximum)
    {
    }
    int threads() const override
    {
        return static_cast<int>(std::count_if(std::begin(layout_.programs),
                                              std::end(layout_.programs),
                                              [](char const * text) { return text != nullptr; }));
    }
    void begin() override { new (&object_) Object(layout_.kind, layout_.initial, layout_.maximum); }
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
            std::uint32_t const result = object_.wait(operation == 'w'       ? -1
                                                          : operation == 'l' ? 1000
                                                                             : 0);
            success = result == wait_object_0;
            if (!success && result != wait_timeout) {
                fail("a wait failed");
            }
        } else if (operation >= '1' && operation <= '9') {
            success = object_.release_units(static_cast<unsigned>(operation - '0'));
        } else {
            success = operation == 's' ? object_.set_event()
                : operation == 'r'     ? object_.reset_event()
                                       : object_.pulse_event();
        }
        note(success ? "has returned: yes" : "has returned: no");
        promise_.returned(thread, success);
        return success;
    }

    layout layout_;
    promise promise_;
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

void add(std::vector<entry> & entries, layout const & what)
{
    for (bounds const limits :
         {bounds{3, 0, 0}, bounds{2, 1, 0}, bounds{2, 0, 1}, bounds{1, 1, 1}}) {
        std::string const suffix = " p" + std::to_string(limits.preemptions) + "k"
            + std::to_string(limits.kills) + "s" + std::to_string(limits.stops);
        entries.push_back(
            make_entry<waitables<named_object>>(name_of("named", what) + suffix, limits, what));
        entries.push_back(
            make_entry<waitables<unnamed_object>>(name_of("unnamed", what) + suffix, limits, what));
    }
}

} // namespace

void add_waitables(std::vector<entry> & entries)
{
    constexpr char const * programs[] = {"w", "l", "t", "s", "r", "p", "1", "2"};
    for (layout what : {layout{sort::automatic, 0, 1, {}}, layout{sort::manual, 0, 1, {}},
                        layout{sort::semaphore, 0, 2, {}}, layout{sort::semaphore, 1, 2, {}}}) {
        auto const fits = [&](char const * program) {
            bool const counts = *program == '1' || *program == '2';
            bool const changes = *program == 's' || *program == 'r' || *program == 'p';
            return what.kind == sort::semaphore ? !changes : !counts;
        };
        for (std::size_t a = 0; a < std::size(programs); ++a) {
            for (std::size_t b = a; b < std::size(programs); ++b) {
                for (std::size_t c = b; c <= std::size(programs); ++c) {
                    what.programs[0] = programs[a];
                    what.programs[1] = programs[b];
                    what.programs[2] = c < std::size(programs) ? programs[c] : nullptr;
                    if (fits(programs[a]) && fits(programs[b])
                        && (what.programs[2] == nullptr || fits(programs[c]))) {
                        add(entries, what);
                    }
                }
            }
        }
    }
}

} // namespace zel::explorer
