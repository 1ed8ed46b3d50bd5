// SPDX-License-Identifier: MIT
// Who holds a name, and the life of handles.
#include "tests/explorer/scenario.h"
#include "zel/platform/objects/name_holders.h"
#include "zel/platform/waits/handles.h"

namespace zel::explorer {
namespace {

using namespace zel::platform;

// 'j' joins, 'l' leaves if it has joined, 'c' looks whether nobody is left, as a creation does. The
// first thread has made the file. Each is a process, or all are one, which is not killed then.
class names : public scenario {
public:
    names(entry const & what, bool are_one)
        : scenario(what, {.given = {1}})
        , are_one_(are_one)
    {
    }
    void begin() override
    {
        explored_ = this;
        holders().begin(mark_of(0));
    }

private:
    std::uint64_t mark_of(int thread) const
    {
        return are_one_ ? 2 : 2 * static_cast<std::uint64_t>(thread) + 2;
    }
    name_holders holders() { return {gate_, entries_, 3}; }
    static std::uint32_t life(std::uint64_t mark)
    {
        return explored_->is_dead(static_cast<int>(mark / 2 - 1)) ? std::uint32_t{is_over}
                                                                  : std::uint32_t{itself_lives};
    }

    bool applies(int thread, char operation) const override
    {
        return operation != 'l' || joined_[thread] != 0;
    }

    progress call(int thread, char operation) override
    {
        name_holders it = holders();
        if (operation == 'j') {
            std::uint32_t place = 0;
            if (it.join(mark_of(thread), life, place) != name_holders::join_result::joined) {
                return refused;
            }
            places_[thread][joined_[thread]++] = place;
            return done;
        }
        if (operation == 'l') {
            it.leave(mark_of(thread), places_[thread][--joined_[thread]], false);
        }
        return it.close_if_dead(mark_of(thread), life) ? done : refused;
    }

    // `given` has what each holds. A leave looks afterwards whether it was the last.
    void take_effect(state s, int thread, char operation) override
    {
        std::int8_t & held = s.given[thread];
        auto const is_none = [](std::int8_t count) { return count == 0; };
        if (operation == 'k') {
            held = 0;
            add(s.with(thread, done));
        } else if (operation == 'j') {
            held = static_cast<std::int8_t>(held + (s.closed != 0 ? 0 : 1));
            add(s.with(thread, s.closed != 0 ? refused : done));
        } else if (operation == 'l' && s.what[thread] != partly) {
            --held;
            add(s.with(thread, partly));
        } else if (s.closed != 0 || !std::all_of(s.given, s.given + most_threads, is_none)) {
            add(s.with(thread, refused));
        } else {
            s.closed = 1;
            add(s.with(thread, done));
        }
    }

    atomic<std::uint64_t> gate_{0};
    atomic<std::uint64_t> entries_[3]{};
    std::uint32_t places_[most_threads][4] = {};
    int joined_[most_threads] = {1};
    bool are_one_;
    static names * explored_; // always in the same place
};
names * names::explored_ = nullptr;

// 'p' pins the first handle, looks and unpins, 'c' closes it; 'o' opens another one, 'x' closes it
// again; 'a' looks at what is left. Two slots are free at first.
class handles : public scenario {
public:
    using scenario::scenario;
    void begin() override
    {
        handle_blocks[0].store(slots_);
        handle_slot & one = take();
        handle_slot & other = take();
        first_ = publish(take(), handle_kind::semaphore, 7, 0);
        give_back(one);
        give_back(other);
    }
    bool dies_anywhere() const override { return false; }

private:
    handle_slot & take()
    {
        handle_slot & slot = *take_slot();
        if (std::exchange(is_used_[slot.number], true)) {
            fail("a slot in use is given out");
        }
        return slot;
    }

    void give_back(handle_slot & slot)
    {
        if (!std::exchange(is_used_[slot.number], false)) {
            fail("freed twice");
        }
        free_slot(slot);
    }

    progress close(void * handle)
    {
        std::uint32_t word = 0;
        if (!retire(*slot_of(handle), handle, word)) {
            return refused;
        }
        if (unpin(*slot_of(handle))) {
            give_back(*slot_of(handle));
        }
        return done;
    }

    progress call(int thread, char operation) override
    {
        handle_slot & first = *slot_of(first_);
        std::uint32_t const used = used_slots();
        switch (operation) {
        case 'p':
            if (!pin(first, first_)) {
                return refused;
            }
            if (word_of(first.state.load()) != 7) {
                fail("the slot has changed hands under a pin");
            }
            if (unpin(first)) {
                give_back(first);
            }
            return done;
        case 'c':
            return close(first_);
        case 'x':
            return close(own_[thread]);
        case 'o':
            own_[thread] = publish(take(), handle_kind::semaphore, 9, 0);
            if (own_[thread] == first_) {
                fail("an old handle lives again");
            }
            return done;
        default:
            for (std::uint32_t i = 0; i < used; ++i) {
                if (!is_used_[i]) {
                    take();
                }
            }
            if (used_slots() != used) {
                fail("a free slot is lost");
            }
            return done;
        }
    }

    void take_effect(state s, int thread, char operation) override
    {
        bool const fails = s.closed != 0 && (operation == 'c' || operation == 'p');
        s.closed = s.closed != 0 || operation == 'c' ? 1 : 0;
        add(s.with(thread, fails ? refused : done));
    }

    handle_slot slots_[12]{};
    bool is_used_[12]{};
    void * first_ = nullptr;
    void * own_[most_threads]{};
};

} // namespace

void add_names_and_handles(std::vector<entry> & entries)
{
    auto const add_names = [&](std::vector<std::string> programs) {
        if (programs.size() == 3 && programs[1] == "jjll") {
            return; // minutes
        }
        programs[0] += "l";
        add<names>(entries, "names", programs, "c", {3, 1, 0}, false, false);
        add<names>(entries, "names of one process", programs, "c", {3, 0, 0}, false, true);
    };
    for_each_group({"", "jl", "c", "jjll"}, false, add_names);
    auto const add_handles = [&](std::vector<std::string> const & programs) {
        bounds const limits{programs.size() == 2 ? 3 : 2, 0, 0};
        add<handles>(entries, "handles", programs, "a", limits, false);
    };
    for_each_group({"c", "p", "co", "ox", "oox"}, false, add_handles);
}

} // namespace zel::explorer
