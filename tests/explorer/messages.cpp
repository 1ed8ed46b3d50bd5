// SPDX-License-Identifier: MIT
// A message queue: its owner, those who post, and the owner's end.
#include "tests/explorer/scenario.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/queues/queue.h"
#include <cstddef>
#include <cstdlib>
#include <new>

namespace zel::explorer {

using namespace zel::platform;

constexpr std::uint32_t owner_number = 101; // of the first thread

// The first thread owns the queue: 'g' gets a message, 'p' takes one if there is one, 'm' sleeps
// until a new message comes or another thread ends, 'e' ends as queue_table.cpp has it. The others: 's'
// posts, 'x' is the end that 'm' waits for.
class messages : public scenario {
public:
    explicit messages(entry const & what)
        : scenario(what)
        , has_end_(what.programs.size() > 3 && what.programs[2] == "x")
    {
    }
    void begin() override
    {
        one = this;
        owner.store(owner_number);
    }
    // Posts are undisturbed as a whole, and so is everything that the queue's lock surrounds.
    bool dies_anywhere() const override { return false; }
    bool end_may_come() const { return has_end_ && !is_dead(2); }

    static messages * one; // only one is run at a time, always in the same place
    queue its;
    atomic<std::uint32_t> owner{0};
    atomic<std::uint32_t> ended{0};

    // For one block of messages, which must not come from the heap.
    alignas(16) std::byte room[4096]{};
    bool room_is_used = false;

private:
    progress call(int thread, char operation) override
    {
        tagMSG message{};
        switch (operation) {
        case 's':
            return post_thread_message(owner_number, static_cast<unsigned>(thread),
                                       ++called_[thread], 0)
                ? done
                : refused;
        case 'x':
            ended.store(1);
            return done;
        case 'm':
            return msg_wait_for_thread(nullptr, infinite) <= 1 ? done : failed;
        case 'g':
            return get_message_a(message, nullptr, 0, 0) == 1 ? take(message) : failed;
        case 'p':
            return peek_message(message, nullptr, 0, 0, peek_remove) ? take(message) : refused;
        default: {
            held const lock(its.lock);
            its.messages.clear();
            owner.store(0);
            return done;
        }
        }
    }

    progress take(tagMSG const & message)
    {
        std::uintptr_t & last = taken_[message.message];
        // A killed owner may have had one in its hands.
        if (message.wParam != last + 1 && !(is_dead(0) && message.wParam == last + 2)) {
            fail("a message twice, or out of its order");
        }
        last = message.wParam;
        return done;
    }

    void take_effect(state s, int thread, char operation) override
    {
        if (operation == 's') {
            s.units = static_cast<std::int8_t>(s.units + (s.closed != 0 ? 0 : 1));
            add(s.with(thread, s.closed != 0 ? refused : done));
        } else if (operation == 'm') { // may look once more than there are messages
            add(s.with(thread, waiting));
            add(s.with(thread, done));
        } else if ((operation == 'g' || operation == 'p') && s.units == 0) {
            add(s.with(thread, operation == 'g' ? waiting : refused));
        } else if (operation == 'g' || operation == 'p') {
            --s.units;
            add(s.with(thread, done));
        } else {
            s.closed = s.closed != 0 || operation == 'e' ? 1 : 0;
            s.units = s.closed != 0 ? std::int8_t{0} : s.units;
            add(s.with(thread, done));
        }
    }
    bool may_sleep(state const & s) const override { return s.units == 0; }

    bool has_end_;
    std::uintptr_t called_[most_threads]{};
    std::uintptr_t taken_[most_threads]{}; // messages of each sender
};

messages * messages::one = nullptr;

void add_messages(std::vector<entry> & entries)
{
    for (auto const & programs :
         std::initializer_list<std::vector<std::string>>{{"ggg", "ss", "s"},
                                                         {"gg", "s", "s"},
                                                         {"mppmpp", "s", "s"},
                                                         {"mppmpp", "ss", "x"},
                                                         {"mgpm", "ss", "x"},
                                                         {"ge", "s", "s"},
                                                         {"mppe", "ss", "x"},
                                                         {"gg", "ss"}}) {
        add<messages>(entries, "messages", programs, "ppppp", {3, 1, 1}, false);
    }
}

} // namespace zel::explorer

// What message_queue.cpp calls of queue_table.cpp and of the threads, with the one queue.
namespace zel::platform {

using explorer::messages;

queue * own_queue() noexcept { return &messages::one->its; }
queue * queue_of(window_name) noexcept { return &messages::one->its; }
atomic<std::uint32_t> & owner_of(queue const &) noexcept { return messages::one->owner; }
queue * queue_of_thread(std::uint32_t number) noexcept
{
    return messages::one->owner.load() == number ? &messages::one->its : nullptr;
}
void update_descriptor(queue &) noexcept { }
void reap_threads() noexcept { }

// As thread_ends_linux.cpp does it where the host cannot sleep on two words: it looks for the end now
// and then.
std::uint32_t wait_for_thread_or_change(void *, atomic<std::uint32_t> const & word,
                                        std::uint32_t expected, std::uint32_t) noexcept
{
    for (;;) {
        uninterrupted const guard;
        if (messages::one->ended.load() != 0) {
            return 0;
        }
        if (word.load() != expected) {
            return 1;
        }
        wait_interruptibly(word, expected, messages::one->end_may_come() ? 1 : -1, false);
        stop_if_told();
    }
}

} // namespace zel::platform

// One block of messages lies in the scenario, so that it is a part of each moment.
void * operator new(std::size_t size, std::nothrow_t const &) noexcept
{
    using zel::explorer::messages;
    if (zel::explorer::running() == nullptr || messages::one == nullptr) {
        return std::malloc(size);
    }
    if (messages::one->room_is_used || size > sizeof messages::room) {
        return nullptr;
    }
    messages::one->room_is_used = true;
    return messages::one->room;
}

void operator delete(void * block) noexcept
{
    using zel::explorer::messages;
    if (messages::one != nullptr && block == static_cast<void *>(messages::one->room)) {
        messages::one->room_is_used = false;
    } else {
        std::free(block);
    }
}
void operator delete(void * block, std::size_t) noexcept { operator delete(block); }
