// SPDX-License-Identifier: MIT
// Who holds a name, and the life of handles.
#include "tests/explorer/scenarios.h"
#include "zel/platform/objects/name_holders.h"
#include "zel/platform/waits/handles.h"

namespace zel::explorer {
namespace {

using namespace zel::platform;

// Each thread is a process: 'j' joins, 'l' leaves if it has joined, 'c' looks whether nobody is left,
// as a creation does. The first has made the file.
class names : public scenario {
public:
    explicit names(entry const & what)
        : scenario(what)
    {
        state first;
        first.given[0] = 1;
        begin_in(first);
    }
    void begin() override
    {
        explored_ = this;
        holders().begin(mark_of(0));
    }

private:
    static std::uint64_t mark_of(int thread) { return 2 * static_cast<std::uint64_t>(thread) + 2; }
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
            places_[thread] = place;
            ++joined_[thread];
            return done;
        }
        if (operation == 'l') {
            --joined_[thread];
            it.leave(mark_of(thread), places_[thread], false);
        }
        return it.close_if_dead(mark_of(thread), life) ? done : refused;
    }

    // `given` has what each holds. A leave looks afterwards whether it was the last.
    void take_effect(state s, int thread, char operation) override
    {
        std::int8_t & held = s.given[static_cast<std::size_t>(thread)];
        bool const has_left = s.what[static_cast<std::size_t>(thread)] == partly;
        if (operation == 'k') {
            held = 0;
            add(s.with(thread, done));
        } else if (operation == 'j') {
            held = static_cast<std::int8_t>(held + (s.closed != 0 ? 0 : 1));
            add(s.with(thread, s.closed != 0 ? refused : done));
        } else if (operation == 'l' && !has_left) {
            --held;
            add(s.with(thread, partly));
        } else if (s.closed != 0 || s.given != decltype(s.given){}) {
            add(s.with(thread, refused));
        } else {
            s.closed = 1;
            add(s.with(thread, done));
        }
    }

    atomic<std::uint64_t> gate_{0};
    atomic<std::uint64_t> entries_[3]{};
    std::uint32_t places_[most_threads] = {};
    int joined_[most_threads] = {1};
    static names * explored_; // always in the same place
};
names * names::explored_ = nullptr;

// 'p' pins the first handle, looks and unpins, 'c' closes it, 'o' opens another one, 'a' looks at
// what is left.
class handles : public scenario {
public:
    explicit handles(entry const & what)
        : scenario(what)
    {
        begin_in({});
    }
    void begin() override
    {
        handle_blocks[0].store(slots_);
        first_ = publish(*take_slot(), handle_kind::semaphore, 7, 0);
    }
    bool dies_anywhere() const override { return false; }

private:
    void free_if_last(handle_slot & slot)
    {
        if (unpin(slot)) {
            ++freed_;
            free_slot(slot);
        }
    }

    progress call(int, char operation) override
    {
        handle_slot & slot = *slot_of(first_);
        std::uint32_t word = 0;
        switch (operation) {
        case 'p':
            if (!pin(slot, first_)) {
                return refused;
            }
            ++pins_;
            if (word_of(slot.state.load()) != 7) {
                fail("the slot has changed hands under a pin");
            }
            --pins_;
            free_if_last(slot);
            return done;
        case 'c':
            if (!retire(slot, first_, word)) {
                return refused;
            }
            is_closed_ = true;
            free_if_last(slot);
            return done;
        case 'o': {
            handle_slot * const mine = take_slot();
            if (mine == &slot && (pins_ != 0 || freed_ == 0)) {
                fail("a slot in use is given out");
            }
            void * const handle = publish(*mine, handle_kind::mutex, 9, 0);
            if (handle == first_ || pin(*mine, first_)) {
                fail("an old handle lives again");
            }
            return done;
        }
        default:
            if (freed_ != (is_closed_ ? 1 : 0)) {
                fail("freed not once");
            }
            handle_slot const * const one = take_slot();
            handle_slot const * const other = take_slot();
            if (one == other || (freed_ == 0 && (one == slots_ || other == slots_))) {
                fail("a slot is given out twice");
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

    handle_slot slots_[6]{};
    void * first_ = nullptr;
    int pins_ = 0;
    bool is_closed_ = false;
    int freed_ = 0;
};

template <class Scenario>
void add_all(std::vector<entry> & entries, char const * who,
             std::initializer_list<char const *> first, std::initializer_list<char const *> others,
             char const * audit, bounds limits)
{
    for (char const * const a : first) {
        for (char const * const b : others) {
            add<Scenario>(entries, who, {a, b}, audit, limits, false);
            for (char const * const c : others) {
                add<Scenario>(entries, who, {a, b, c}, audit, limits, false);
            }
        }
    }
}

} // namespace

void add_names_and_handles(std::vector<entry> & entries)
{
    add_all<names>(entries, "names", {"l", "", "jll"}, {"jl", "c", "jjll"}, "c", {3, 1, 0});
    add_all<handles>(entries, "handles", {"c", "p"}, {"c", "p", "o", "co", "pc"}, "a", {3, 0, 0});
}

} // namespace zel::explorer
