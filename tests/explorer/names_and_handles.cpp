// SPDX-License-Identifier: MIT
// Who holds a name, and the life of handles.
#include "tests/explorer/scenarios.h"
#include "zel/platform/objects/name_holders.h"
#include "zel/platform/waits/handles.h"
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>

namespace zel::explorer {
namespace {

using namespace zel::platform;

struct layout {
    char const * programs[most_threads - 1]; // null: no such thread
};

class programs : public scenario {
public:
    explicit programs(layout const & what)
        : layout_(what)
    {
    }
    int threads() const override
    {
        return static_cast<int>(std::count_if(std::begin(layout_.programs),
                                              std::end(layout_.programs),
                                              [](char const * text) { return text != nullptr; }));
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
            note((std::string("calls ") + *step).c_str());
            call(thread, *step);
        }
    }

protected:
    virtual void call(int thread, char operation) = 0;

private:
    layout layout_;
};

// Each thread is a process: 'j' joins, 'l' leaves if it has joined, 'c' looks whether nobody is left,
// as a creation does.
class names : public programs {
public:
    using programs::programs;
    void begin() override
    {
        explored_ = this;
        holders().begin(mark_of(0));
    }
    void killed(int thread) override { alive_[thread] = false; }
    // Whoever leaves last closes; of the killed nobody knows before somebody looks.
    void audit() override
    {
        call(threads(), 'c');
        bool const held = std::any_of(joined_, joined_ + threads(), [](int n) { return n != 0; });
        bool const alive_ones = [&] {
            for (int i = 0; i < threads(); ++i) {
                if (joined_[i] != 0 && alive_[i]) {
                    return true;
                }
            }
            return false;
        }();
        if (closers_ > 1 || (holders().closer() == 0 && !(held && alive_ones))) {
            fail("the name did not go with its last holder, or twice");
        }
    }

private:
    static std::uint64_t mark_of(int thread) { return 2 * static_cast<std::uint64_t>(thread) + 2; }
    name_holders holders() { return {gate_, entries_, 3}; }
    static std::uint32_t life(std::uint64_t mark)
    {
        return explored_->alive_[mark / 2 - 1] ? std::uint32_t{itself_lives}
                                               : std::uint32_t{is_over};
    }

    void call(int thread, char operation) override
    {
        name_holders it = holders();
        if (operation == 'j') {
            std::uint32_t entry = 0;
            if (it.join(mark_of(thread), life, entry) == name_holders::join_result::joined) {
                places_[thread] = entry;
                ++joined_[thread];
                if (it.closer() != 0) {
                    fail("joined what is closed");
                }
            }
            return;
        }
        if (operation == 'l') {
            if (joined_[thread] == 0) {
                return;
            }
            --joined_[thread];
            it.leave(places_[thread], false);
        }
        if (it.close_if_dead(mark_of(thread), life)) {
            ++closers_;
            for (int i = 0; i < threads(); ++i) {
                if (joined_[i] != 0 && alive_[i]) {
                    fail("closed what somebody holds");
                }
            }
        }
    }

    atomic<std::uint64_t> gate_{0};
    atomic<std::uint64_t> entries_[3]{};
    std::uint32_t places_[most_threads] = {};
    int joined_[most_threads] = {1}; // the first thread has made the file
    int closers_ = 0;
    bool alive_[most_threads] = {true, true, true, true};
    static names * explored_; // always in the same place
};
names * names::explored_ = nullptr;

// 'p' pins the first handle, looks and unpins, 'c' closes it, 'o' opens another one.
class handles : public programs {
public:
    using programs::programs;
    void begin() override
    {
        handle_blocks[0].store(slots_);
        first_ = publish(*take_slot(), handle_kind::semaphore, 7, 0);
    }
    bool dies_anywhere(int) const override { return false; }
    void audit() override
    {
        if (closed_ > 1 || freed_ > 1 || (closed_ == 1) != (freed_ == 1)) {
            fail("closed or freed not once");
        }
        handle_slot const * const one = take_slot();
        handle_slot const * const other = take_slot();
        if (one == other || (freed_ == 0 && (one == slots_ || other == slots_))) {
            fail("a slot is given out twice");
        }
    }

private:
    void free_if_last(handle_slot & slot)
    {
        if (unpin(slot)) {
            ++freed_;
            free_slot(slot);
        }
    }
    void call(int, char operation) override
    {
        handle_slot & slot = *slot_of(first_);
        if (operation == 'p') {
            if (pin(slot, first_)) {
                ++pins_;
                if (word_of(slot.state.load()) != 7) {
                    fail("the slot has changed hands under a pin");
                }
                --pins_;
                free_if_last(slot);
            }
        } else if (operation == 'c') {
            std::uint32_t word = 0;
            if (retire(slot, first_, word)) {
                ++closed_;
                free_if_last(slot);
            }
        } else {
            handle_slot * const mine = take_slot();
            if (mine == &slot && (pins_ != 0 || freed_ == 0)) {
                fail("a slot in use is given out");
            }
            void * const handle = publish(*mine, handle_kind::mutex, 9, 0);
            if (handle == first_ || pin(*mine, first_)) {
                fail("an old handle lives again");
            }
        }
    }

    handle_slot slots_[6]{};
    void * first_ = nullptr;
    int pins_ = 0;
    int closed_ = 0;
    int freed_ = 0;
};

template <class Scenario>
void add(std::vector<entry> & entries, char const * who, std::initializer_list<char const *> first,
         std::initializer_list<char const *> others, std::initializer_list<bounds> all)
{
    for (char const * const a : first) {
        for (char const * const b : others) {
            for (char const * const * c = others.begin();; ++c) {
                bool const is_pair = c == others.end();
                layout const what{{a, b, is_pair ? nullptr : *c}};
                for (bounds const limits : all) {
                    std::string const name = std::string(who) + " " + a + " " + b + " "
                        + (is_pair ? "" : *c) + " p" + std::to_string(limits.preemptions) + "k"
                        + std::to_string(limits.kills);
                    entries.push_back(make_entry<Scenario>(name, limits, false, what));
                }
                if (is_pair) {
                    break;
                }
            }
        }
    }
}

} // namespace

void add_names_and_handles(std::vector<entry> & entries)
{
    add<names>(entries, "names", {"l", "", "jll"}, {"jl", "c", "jjll"}, {{3, 0, 0}, {2, 1, 0}});
    add<handles>(entries, "handles", {"c", "p"}, {"c", "p", "o", "co", "pc"}, {{3, 0, 0}});
}

} // namespace zel::explorer
