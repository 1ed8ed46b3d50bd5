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

// A name that no other run of the tests has.
zel::string unique(char const * name)
{
    return zel::string().format("zel test %d %s", static_cast<int>(::getpid()), name);
}

TEST(sync_names, fail_where_nothing_can_be_made_or_opened)
{
    zel::string const name = unique("taken");
    zel::string const missing = unique("missing");
    zel::mutex const taken(false, name);
    struct {
        std::function<void()> make;
        char const * failure;
    } const rows[] = {
        {[&] { zel::event(false, false, name.c_str()); }, "event::event()"}, // another kind
        {[&] { zel::event(event_all_access, false, name.c_str()); }, "event::event()"},
        {[&] { zel::event(event_all_access, false, missing.c_str()); }, "event::event()"},
        {[&] { zel::event(event_all_access, false, nullptr); }, "event::event()"},
        {[&] { zel::mutex(mutex_all_access, false, missing); }, "mutex::mutex"},
        {[&] { zel::mutex(false, zel::string(261, 'n')); }, "mutex::mutex"},
        {[&] { zel::semaphore(semaphore_all_access, false, missing); }, "semaphore::semaphore"},
        {[&] { zel::semaphore(1, 1, name); }, "semaphore::semaphore"},
        {[&] { zel::semaphore(2, 1); }, "semaphore::semaphore"},
        {[&] { zel::semaphore(-1, 1); }, "semaphore::semaphore"},
        {[&] { zel::semaphore(0, 0); }, "semaphore::semaphore"},
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

TEST(sync_names, lead_to_one_object)
{
    zel::string const name = unique("event");
    zel::event const first(true, true, name.c_str());
    zel::event second(false, false, name.c_str()); // joins: stays set, manual-reset
    zel::event opened(event_all_access, false, name.c_str());
    zel::event listener(synchronize, false, name.c_str());
    EXPECT_EQ(second.get_name(), name);
    EXPECT_EQ(opened.get_name(), ""); // an opened object has no name of its own
    EXPECT_NE(opened.get_handle(), nullptr);
    EXPECT_TRUE(second.lock(0) && second.lock(0) && opened.lock(0) && opened.reset());
    EXPECT_FALSE(second.lock(0) || listener.set()); // the listener lacks the right
    EXPECT_TRUE(second.set() && listener.lock(0));

    zel::semaphore units(3, 5, unique("semaphore"));
    zel::semaphore same(semaphore_all_access, false, units.get_name());
    EXPECT_TRUE(same.lock(0) && units.lock(0) && same.lock(0));
    EXPECT_FALSE(units.lock(0));
}

TEST(sync_names, a_mutex_gives_one_hold_back_when_it_goes)
{
    zel::mutex mutex(true, unique("mutex"));
    auto const others_get_it = [&] {
        bool result = false;
        std::thread([&] { result = mutex.lock(0) && mutex.unlock(); }).join();
        return result;
    };
    {
        zel::mutex again(mutex_all_access, false, mutex.get_name());
        zel::mutex const joined(true, mutex.get_name()); // without being taken
        EXPECT_TRUE(again.lock(0) && again.lock(0)); // three holds now
        EXPECT_FALSE(others_get_it());
        EXPECT_TRUE(again.unlock());
    } // and two of them go
    EXPECT_TRUE(others_get_it());
    EXPECT_FALSE(mutex.unlock());
}

} // namespace
