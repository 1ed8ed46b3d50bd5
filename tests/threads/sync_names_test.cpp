// SPDX-License-Identifier: MIT
#include "zel/platform/kernel_objects.h"
#include "zel/threads/event.h"
#include "zel/threads/mutex.h"
#include "zel/threads/semaphore.h"

#include <functional>
#include <gtest/gtest.h>
#include <thread>

#include <unistd.h>

namespace {

using namespace zel::platform;

template <typename Body> void on_another_thread(Body body) { std::thread(body).join(); }

// A name that no other run of the tests has.
zel::string unique(char const * name)
{
    zel::string text;
    return text.format("zel test %d %s", static_cast<int>(::getpid()), name);
}

TEST(sync_names, raise_when_nothing_can_be_made_or_opened)
{
    zel::string const name = unique("taken");
    zel::string const missing = unique("missing");
    zel::mutex const taken(false, name);
    struct {
        std::function<void()> make;
        char const * failure;
    } const rows[] = {
        {[&] { zel::event(false, false, name.c_str()); }, "event::event()"}, // another kind
        {[&] { zel::event(event_all_access, false, missing.c_str()); }, "event::event()"},
        {[&] { zel::event(event_all_access, false, nullptr); }, "event::event()"},
        {[&] { zel::event(event_all_access, false, name.c_str()); }, "event::event()"},
        {[&] { zel::mutex(mutex_all_access, false, missing); }, "mutex::mutex"},
        {[&] { zel::mutex(false, zel::string(261, 'n')); }, "mutex::mutex"},
        {[&] { zel::semaphore(semaphore_all_access, false, missing); }, "semaphore::semaphore"},
        {[&] { zel::semaphore(1, 1, name); }, "semaphore::semaphore"},
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(&row - rows);
        try {
            row.make();
            ADD_FAILURE() << "nothing raised";
        } catch (zel::sync_obj::exception & failure) {
            EXPECT_EQ(failure.get_message(),
                      std::string("Zel Sync Exception: failed to create ") + row.failure);
        }
    }
}

TEST(sync_names, share_what_has_one_name)
{
    zel::string const names[] = {unique("event"), unique("mutex"), unique("semaphore")};
    zel::event const first(true, true, names[0].c_str());
    zel::event second(false, false,
                      names[0].c_str()); // joins: stays set, manual-reset
    zel::event opened(event_all_access, false, names[0].c_str());
    EXPECT_EQ(second.get_name(), names[0]);
    EXPECT_EQ(opened.get_name(), ""); // an opened object has no name of its own
    EXPECT_NE(opened.get_handle(), nullptr);
    EXPECT_TRUE(second.lock(0) && second.lock(0) && opened.lock(0));
    EXPECT_TRUE(opened.reset());
    EXPECT_FALSE(second.lock(0));
    zel::event listener(synchronize, false, names[0].c_str());
    EXPECT_FALSE(listener.set()); // lacks the right
    EXPECT_TRUE(second.set() && listener.lock(0));

    zel::semaphore units(3, 5, names[2]);
    zel::semaphore same(semaphore_all_access, false, names[2]);
    EXPECT_TRUE(same.lock(0) && units.lock(0) && same.lock(0));
    EXPECT_FALSE(units.lock(0));

    zel::mutex mutex(true, names[1]);
    zel::mutex again(mutex_all_access, false, names[1]);
    on_another_thread([&] { EXPECT_FALSE(again.lock(0)); });
    EXPECT_TRUE(again.lock(0) && again.unlock() && mutex.unlock());
    EXPECT_FALSE(mutex.unlock());
}

TEST(sync_names, a_mutex_is_released_by_its_destructor)
{
    zel::string const name = unique("released by its destructor");
    zel::mutex keeper(false, name);
    {
        zel::mutex const owned(true, name); // joins without taking
        on_another_thread([&] { EXPECT_TRUE(keeper.lock(0) && keeper.unlock()); });
        EXPECT_TRUE(keeper.lock(0));
    }
    on_another_thread([&] { EXPECT_TRUE(keeper.lock(0) && keeper.unlock()); });
}

} // namespace
