// SPDX-License-Identifier: MIT
#include "tests/platform/waited_object.h"
#include "tests/support/processes.h"
#include "zel/platform/objects/named_file_linux.h"
#include <filesystem>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace zel::platform;
using namespace std::chrono_literals;

bool is_there(std::string const & name)
{
    void * const handle = open_semaphore(semaphore_all_access, false, name.c_str());
    EXPECT_TRUE(handle == nullptr ? last_error() == 2U : close_handle(handle));
    return handle != nullptr;
}

TEST(named_objects, are_one_object_in_all_processes)
{
    time_limit const seconds(20);
    std::string const name = fresh_name();
    object const event(create_event(false, false, name.c_str()));
    EXPECT_EQ(last_error(), 0U);
    {
        // Its own initial values, and its own sort of event, mean nothing.
        object const again(create_event(true, true, ("Local\\" + name).c_str()));
        EXPECT_EQ(last_error(), 183U);
        EXPECT_EQ(again.wait(0), wait_timeout);
    }
    child_process child([&] {
        // A program that is started anew knows nothing but the name; here without the handles.
        void * const opened = open_event(event_all_access, false, ("Global\\" + name).c_str());
        return opened != nullptr && set_event(opened);
    });
    EXPECT_EQ(event.wait(10'000), wait_object_0);
    EXPECT_EQ(event.wait(0), wait_timeout);
    EXPECT_EQ(child.result(), 0);
}

TEST(named_objects, last_as_long_as_anybody_holds_them)
{
    time_limit const seconds(20);
    std::string const name = fresh_name();
    EXPECT_FALSE(is_there(name));
    void * const held = create_semaphore(3, 3, name.c_str());
    EXPECT_TRUE(is_there(name));
    object const ready(create_event(false, false, fresh_name().c_str()));
    // What replaces a process by another program gives all back.
    child_process program([&] {
        void * const only = create_semaphore(3, 3, (name + "only").c_str());
        set_event(ready);
        ::execl("/bin/sleep", "sleep", "20", nullptr);
        return only == nullptr;
    });
    EXPECT_EQ(ready.wait(10'000), wait_object_0);
    while (is_there(name + "only")) {
        std::this_thread::sleep_for(1ms);
    }
    child_process child([&] {
        set_event(ready);
        return ::pause();
    });
    EXPECT_EQ(ready.wait(10'000), wait_object_0);
    EXPECT_TRUE(close_handle(held));
    EXPECT_TRUE(is_there(name)) << "the child of a fork has it too";
    void * const own = open_semaphore(synchronize, false, name.c_str());
    EXPECT_TRUE(holds_in_child([&] { return close_handle(own); }));
    child.kill();
    EXPECT_TRUE(is_there(name)) << "a child that closes its copy takes nothing from its parent";
    EXPECT_TRUE(close_handle(own));
    EXPECT_FALSE(is_there(name));
    object const fresh(create_semaphore(0, 1, name.c_str()));
    EXPECT_EQ(last_error(), 0U);
    EXPECT_EQ(fresh.wait(0), wait_timeout);
}

TEST(named_objects, take_any_name_and_refuse_what_is_none)
{
    time_limit const seconds(20);
    std::string bytes;
    for (int c = 1; c < 256; ++c) {
        bytes += static_cast<char>(c);
    }
    for (std::string const & name :
         {bytes, std::string(260, 'x'), std::string("."), std::string(".."), std::string("/"),
          std::string("Local\\"), std::string("local\\a"), std::string("Local\\Local\\a")}) {
        SCOPED_TRACE(name);
        object const first(create_mutex(false, name.c_str()));
        EXPECT_EQ(last_error(), 0U);
        object const second(open_mutex(mutex_all_access, false, name.c_str()));
        EXPECT_TRUE(first.wait(0) == wait_object_0 && release_mutex(second));
    }
    EXPECT_EQ(create_mutex(false, std::string(261, 'x').c_str()), nullptr);
    EXPECT_EQ(last_error(), 206U);
    EXPECT_EQ(open_mutex(mutex_all_access, false, nullptr), nullptr);
    EXPECT_EQ(last_error(), 87U);

    std::string const name = fresh_name();
    object const event(create_event(false, false, name.c_str()));
    EXPECT_EQ(create_mutex(false, name.c_str()), nullptr);
    EXPECT_EQ(last_error(), 6U);
    EXPECT_EQ(open_semaphore(semaphore_all_access, false, name.c_str()), nullptr);
    EXPECT_EQ(last_error(), 6U);
}

TEST(named_objects, refuse_what_the_handle_has_no_right_to)
{
    std::string const names[] = {fresh_name(), fresh_name(), fresh_name()};
    object const event(create_event(false, false, names[0].c_str()));
    object const semaphore(create_semaphore(0, 1, names[1].c_str()));
    object const mutex(create_mutex(false, names[2].c_str()));
    object const waits(open_event(synchronize, false, names[0].c_str()));
    object const sets(open_event(event_modify_state, false, names[0].c_str()));
    object const counts(open_semaphore(synchronize, false, names[1].c_str()));
    object const no_waits(open_mutex(event_modify_state, false, names[2].c_str()));
    auto const is_denied = [](bool done) { return !done && last_error() == 5U; };
    EXPECT_TRUE(is_denied(set_event(waits)));
    EXPECT_TRUE(is_denied(reset_event(waits)));
    EXPECT_TRUE(is_denied(pulse_event(waits)));
    EXPECT_TRUE(is_denied(release_semaphore(counts, 1, nullptr)));
    EXPECT_TRUE(set_event(sets));
    EXPECT_TRUE(is_denied(sets.wait(0) == wait_object_0));
    EXPECT_TRUE(is_denied(no_waits.wait(1) == wait_object_0));
    EXPECT_EQ(waits.wait(0), wait_object_0);
}

TEST(named_objects, do_not_trust_what_somebody_else_put_there)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "takes another user's place, which only the superuser can";
    }
    constexpr uid_t user = 64'123;
    std::string const place = "/dev/shm/zel-" + std::to_string(user);
    auto const last_error_of_user = [] {
        return in_child([] {
            if (::setresuid(user, user, user) != 0) {
                return 255;
            }
            void * const made = create_event(false, false, fresh_name().c_str());
            return made == nullptr ? static_cast<int>(last_error()) : !close_handle(made);
        });
    };
    ASSERT_EQ(::mkdir(place.c_str(), 0700), 0); // the superuser's
    EXPECT_EQ(last_error_of_user(), 5);
    ASSERT_EQ(::rmdir(place.c_str()), 0);
    ASSERT_EQ(::symlink("/tmp", place.c_str()), 0);
    EXPECT_EQ(last_error_of_user(), 5);
    ASSERT_EQ(::unlink(place.c_str()), 0);
    EXPECT_EQ(last_error_of_user(), 0); // a folder of its own
    for (auto const & entry : std::filesystem::directory_iterator(place)) {
        EXPECT_EQ(entry.status().permissions(), std::filesystem::perms(0600)) << entry.path();
    }
    ASSERT_EQ(::chmod(place.c_str(), 0770), 0);
    EXPECT_EQ(last_error_of_user(), 5) << "others may write there";
    EXPECT_EQ(std::filesystem::remove_all(place), 2U) << "the file went with the last object";
}

TEST(named_objects, of_the_dead_are_taken_away_by_whoever_meets_one)
{
    std::string const names[] = {fresh_name(), fresh_name()};
    auto const has_file = [](std::string const & name) {
        std::string const place = "/dev/shm/zel-" + std::to_string(::geteuid()) + "/";
        return std::filesystem::exists(place + file_name(name).text);
    };
    in_child([&] {
        for (std::string const & name : names) {
            EXPECT_TRUE(create_event(false, true, name.c_str()) && has_file(name));
        }
        return 0;
    });
    object const fresh(create_event(false, false, names[0].c_str()));
    EXPECT_EQ(last_error(), 0U);
    EXPECT_EQ(fresh.wait(0), wait_timeout);
    EXPECT_FALSE(has_file(names[1]));
}

} // namespace
