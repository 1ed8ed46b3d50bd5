// SPDX-License-Identifier: MIT
// What the classes make of the layer below, which has tests of its own.
#include "zel/platform/kernel_objects.h"
#include "zel/threads/crit_sect.h"
#include "zel/threads/event.h"
#include "zel/threads/lockable.h"
#include "zel/threads/multi_lock.h"
#include "zel/threads/mutex.h"
#include "zel/threads/semaphore.h"
#include "zel/threads/single_lock.h"

#include "tests/support/raised.h"
#include "tests/support/time_limit.h"
#include <functional>
#include <gtest/gtest.h>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>

#include <unistd.h>

namespace {

using namespace zel::platform;

template <typename Body> void on_another_thread(Body body) { std::thread(body).join(); }

// A name that no other run of the tests has.
zel::string unique(char const * name)
{
    return zel::string().format("zel test %d %s", static_cast<int>(::getpid()), name);
}

// Has lost its handle, as a derived class can have it.
template <typename Object> class empty : public Object {
public:
    empty() { close_handle(std::exchange(this->handle, nullptr)); }
};

TEST(sync_objects, raise_where_nothing_is_made_opened_or_held)
{
    zel::string const name = unique("taken");
    zel::string const missing = unique("missing");
    zel::mutex const taken(false, name);
    empty<zel::event> event;
    empty<zel::mutex> mutex;
    empty<zel::semaphore> units;
    EXPECT_FALSE(event.set() || event.reset() || event.pulse()); // these only say so
    struct {
        char const * message;
        std::vector<std::function<void()>> calls;
    } const rows[] = {
        {"Zel Sync Exception: failed to create event::event()",
         {[&] { zel::event(false, false, name.c_str()); }, // another kind has it
          [&] { zel::event(event_all_access, false, missing.c_str()); },
          [&] { zel::event(event_all_access, false, nullptr); }}},
        {"Zel Sync Exception: failed to create mutex::mutex",
         {[&] { zel::mutex(mutex_all_access, false, missing); },
          [&] { zel::mutex(false, zel::string(261, 'n')); }}},
        {"Zel Sync Exception: failed to create semaphore::semaphore",
         {[&] { zel::semaphore(semaphore_all_access, false, missing); },
          [&] { zel::semaphore(1, 1, name); }, [&] { zel::semaphore(2, 1); }}},
        {"Zel Kernel Exception: Invalid Handle ",
         {[&] { event.lock(0); }, [&] { mutex.lock(0); }, [&] { mutex.unlock(); },
          [&] { units.lock(0); }, [&] { units.unlock(); }}},
    };
    for (auto const & [message, calls] : rows) {
        for (auto const & call : calls) {
            SCOPED_TRACE(&call - calls.data());
            EXPECT_EQ(message_raised(call), message);
        }
    }
}

TEST(crit_sect, waits_whatever_the_time)
{
    zel::crit_sect section;
    std::atomic<bool> given_back{false};
    EXPECT_TRUE(section.lock(0) && section.lock(0) && section.unlock()); // the holder's again
    std::thread waiter([&] { EXPECT_TRUE(section.lock(0) && given_back && section.unlock()); });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    given_back = true;
    EXPECT_TRUE(section.unlock());
    waiter.join();
}

TEST(event, lets_one_through_or_everyone)
{
    zel::event one;
    EXPECT_TRUE(!one.lock(0) && one.set() && one.unlock()); // unlock does nothing
    EXPECT_TRUE(one.lock(0) && !one.lock(0));
    zel::event all(true, true, unique("event").c_str());
    zel::event same(false, false, all.get_name().c_str()); // joins: stays set, manual-reset
    zel::event listener(synchronize, false, all.get_name().c_str());
    EXPECT_EQ(listener.get_name(), ""); // an opened object has no name of its own
    EXPECT_TRUE(same.lock(0) && listener.lock(0) && same.reset());
    EXPECT_FALSE(all.lock(0) || listener.set()); // which lacks the right
    EXPECT_TRUE(all.set() && all.pulse() && !all.lock(0)); // nobody waits
}

TEST(mutex, belongs_to_a_thread_and_tells_once_that_it_has_died)
{
    zel::mutex mutex(true, unique("mutex"));
    {
        zel::mutex again(mutex_all_access, false, mutex.get_name());
        zel::mutex const joined(true, mutex.get_name()); // without being taken
        EXPECT_TRUE(again.lock(0) && again.lock(0)); // three holds now
    } // and two of them go
    on_another_thread([&] { EXPECT_FALSE(mutex.lock(10) || mutex.unlock()); });
    EXPECT_TRUE(mutex.unlock() && !mutex.unlock());

    on_another_thread([&] { EXPECT_TRUE(mutex.lock(0)); });
    EXPECT_FALSE(mutex.lock(1000)); // the caller's all the same
    on_another_thread([&] { EXPECT_FALSE(mutex.lock(0)); });
    EXPECT_TRUE(mutex.unlock() && mutex.lock(0) && mutex.unlock());
}

TEST(semaphore, counts_its_units)
{
    zel::semaphore one;
    EXPECT_TRUE(one.lock(0) && !one.lock(0));
    EXPECT_TRUE(one.unlock() && !one.unlock()); // above the maximum

    zel::semaphore many(0, 10, unique("semaphore"));
    zel::semaphore same(semaphore_all_access, false, many.get_name());
    std::int32_t before = -1;
    EXPECT_TRUE(same.unlock(5, &before));
    EXPECT_FALSE(many.unlock(6, &before));
    EXPECT_EQ(before, 0);
    std::uint32_t untouched = 77;
    EXPECT_TRUE(
        static_cast<zel::sync_obj &>(many).unlock(5, &untouched)); // one, whatever the count
    EXPECT_EQ(untouched, 77U);
    EXPECT_TRUE(many.unlock(1, &before));
    EXPECT_EQ(before, 6);
}

TEST(lockable, lets_the_guards_of_the_standard_library_hold_any_lock)
{
    zel::crit_sect section;
    zel::mutex mutex;
    zel::semaphore unit;
    zel::lockable one(section);
    zel::lockable two(mutex);
    zel::lockable three(unit);
    for (int i = 0; i < 2; ++i) {
        std::scoped_lock const all(one, two, three);
        on_another_thread([&] { // neither waits
            EXPECT_FALSE(one.try_lock() || two.try_lock() || three.try_lock());
        });
    }
    for (bool const waits : {true, false}) {
        on_another_thread([&] { EXPECT_TRUE(mutex.lock(0)); }); // and dies with it
        EXPECT_THROW(waits ? two.lock() : static_cast<void>(two.try_lock()), zel::exception);
        on_another_thread([&] { EXPECT_TRUE(two.try_lock() && mutex.unlock()); }); // told once
    }
    static_assert(!std::is_constructible_v<zel::mutex, char const *>); // no truth value
    static_assert(!std::is_constructible_v<zel::event, char const *>);
    static_assert(!std::is_constructible_v<zel::event, bool, char const *>);
}

TEST(single_lock, remembers_the_last_answer_and_gives_back_once)
{
    class single_unit : public zel::semaphore {
    public:
        using semaphore::unlock;
        bool unlock(std::uint32_t count, std::uint32_t *) override
        {
            return count == 3 && unlock();
        }
    } unit;
    for (bool const counts : {false, true}) {
        zel::multi_lock const nothing(std::list<zel::sync_obj *>{&unit, nullptr});
        zel::single_lock guard(unit); // waits for it
        zel::single_lock other(unit, false);
        EXPECT_FALSE(other.is_locked() || other.lock(5) || other.is_locked());
        EXPECT_TRUE(guard.is_locked());
        EXPECT_TRUE(counts ? guard.unlock(3, nullptr) : guard.unlock());
        EXPECT_TRUE(guard.unlock() && !guard.is_locked() && other.unlock()); // no call
        EXPECT_TRUE(other.lock(0) && other.is_locked());
    } // which gives it back
    {
        zel::single_lock guard(unit);
        EXPECT_FALSE(guard.lock(0)); // forgets the first hold
    }
    EXPECT_FALSE(unit.lock(0));
    EXPECT_TRUE(unit.unlock());
    {
        zel::single_lock guard(unit);
        EXPECT_TRUE(unit.unlock());
        EXPECT_FALSE(guard.unlock() || guard.unlock(3, nullptr)); // refused: it stays held
        EXPECT_TRUE(guard.is_locked() && unit.lock(0));
    } // and is tried in the end
    EXPECT_TRUE(unit.lock(0));
}

} // namespace
