// SPDX-License-Identifier: MIT
#include "zel/platform/kernel_objects.h"

#include "tests/platform/waited_object.h"
#include "tests/support/processes.h"
#include "zel/platform/last_error.h"
#include "zel/platform/objects/named_file_linux.h"
#include "zel/platform/objects/process_life_linux.h"
#include "zel/platform/waits/address_wait.h"
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace zel::platform;
using namespace std::chrono_literals;

// A name that no other test uses.
std::string fresh_name(char const * what = "object")
{
    static int count = 0;
    return "zel test/" + std::to_string(::getpid()) + "\\" + what + std::to_string(++count);
}

std::string folder() { return "/dev/shm/zel-" + std::to_string(::geteuid()); }

// Counters that the processes of a test share.
struct counters {
    std::atomic<std::int64_t> values[8];
};
counters & shared_counters()
{
    void * const memory = ::mmap(nullptr, sizeof(counters), PROT_READ | PROT_WRITE,
                                 MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return *new (memory) counters{};
}

// Files in shared memory that nobody holds, among them of this user's other programs.
long abandoned_files()
{
    user_folder place;
    EXPECT_TRUE(place.open(false));
    std::filesystem::directory_iterator const files(folder());
    return std::count_if(begin(files), end(files), [&](auto const & entry) {
        named_file file;
        return file.open(place, entry.path().filename().c_str()) == user_folder::found::file
            && file.is_understood() && file.holders().life(0, life_of_process) == is_over;
    });
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
        return opened != nullptr && set_event(opened) ? 0 : 1;
    });
    EXPECT_EQ(event.wait(10'000), wait_object_0);
    EXPECT_EQ(event.wait(0), wait_timeout);
    EXPECT_EQ(child.result(), 0);
}

TEST(named_objects, last_as_long_as_anybody_holds_them)
{
    time_limit const seconds(20);
    std::string const name = fresh_name();
    auto const is_there = [&] {
        void * const handle = open_semaphore(semaphore_all_access, false, name.c_str());
        EXPECT_TRUE(handle == nullptr ? last_error() == 2U : close_handle(handle));
        return handle != nullptr;
    };
    EXPECT_FALSE(is_there());
    {
        object const first(create_semaphore(3, 3, name.c_str()));
        EXPECT_TRUE(is_there());
    }
    EXPECT_FALSE(is_there());

    void * const held = create_semaphore(3, 3, name.c_str());
    object const ready(create_event(false, false, (name + "ready").c_str()));
    child_process child([&] {
        set_event(ready);
        return ::pause();
    });
    EXPECT_EQ(ready.wait(10'000), wait_object_0);
    EXPECT_TRUE(close_handle(held));
    EXPECT_TRUE(is_there()) << "the child of a fork has it too";
    child.kill();
    EXPECT_FALSE(is_there());
    object const fresh(create_semaphore(0, 1, name.c_str()));
    EXPECT_EQ(last_error(), 0U);
    EXPECT_EQ(fresh.wait(0), wait_timeout);
}

TEST(named_objects, are_given_back_by_exec)
{
    time_limit const seconds(20);
    std::string const name = fresh_name();
    object const ready(create_event(false, false, (name + "ready").c_str()));
    object const watched(create_mutex(false, (name + "mutex").c_str()));
    child_process child([&] {
        void * const only = create_event(false, false, name.c_str());
        wait_for_single_object(watched, infinite);
        set_event(ready);
        ::execl("/bin/sleep", "sleep", "20", nullptr);
        return only == nullptr ? 1 : 2;
    });
    EXPECT_EQ(ready.wait(10'000), wait_object_0);
    EXPECT_EQ(watched.wait(10'000), wait_abandoned);
    void * left = nullptr;
    for (int i = 0; i < 1000; ++i) { // the memory goes right after the mutex
        left = open_event(synchronize, false, name.c_str());
        if (left == nullptr) {
            break;
        }
        close_handle(left);
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_EQ(left, nullptr);
    release_mutex(watched);
}

TEST(named_objects, take_any_name_and_refuse_what_is_none)
{
    time_limit const seconds(20);
    std::string bytes;
    for (int c = 1; c < 256; ++c) {
        bytes += static_cast<char>(c);
    }
    std::string const names[] = {
        bytes, std::string(260, 'x'), ".", "..", "/", "Local\\", "local\\a", "Local\\Local\\a",
    };
    for (std::string const & name : names) {
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
    std::string const name = fresh_name();
    object const event(create_event(false, false, name.c_str()));
    object const semaphore(create_semaphore(0, 1, (name + "s").c_str()));
    object const waits(open_event(synchronize, false, name.c_str()));
    object const sets(open_event(event_modify_state, false, name.c_str()));
    object const counts(open_semaphore(synchronize, false, (name + "s").c_str()));
    EXPECT_FALSE(set_event(waits) || reset_event(waits) || pulse_event(waits));
    EXPECT_EQ(last_error(), 5U);
    EXPECT_TRUE(set_event(sets));
    EXPECT_EQ(sets.wait(0), wait_failed);
    EXPECT_EQ(last_error(), 5U);
    EXPECT_EQ(waits.wait(0), wait_object_0);
    EXPECT_FALSE(release_semaphore(counts, 1, nullptr));
    EXPECT_EQ(last_error(), 5U);
}

TEST(named_objects, do_not_trust_what_somebody_else_put_there)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "takes another user's place, which only the superuser can";
    }
    constexpr uid_t user = 64'123;
    std::string const place = "/dev/shm/zel-" + std::to_string(user);
    auto const last_error_of_user = [] {
        child_process child([] {
            if (::setresuid(user, user, user) != 0) {
                return 255;
            }
            void * const made = create_event(false, false, fresh_name().c_str());
            return made == nullptr ? static_cast<int>(last_error()) : !close_handle(made);
        });
        return child.result();
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

TEST(named_mutex, belongs_to_the_thread_and_not_to_the_child_of_a_fork)
{
    time_limit const seconds(20);
    std::string const name = fresh_name();
    object const mutex(create_mutex(true, name.c_str()));
    object const second(create_mutex(true, name.c_str()));
    EXPECT_EQ(last_error(), 183U);
    EXPECT_EQ(second.wait(0), wait_object_0) << "the same owner through another handle";
    child_process child([&] {
        if (release_mutex(mutex) || last_error() != 288U) {
            return 1;
        }
        return mutex.wait(0) == wait_timeout && second.wait(20'000) == wait_object_0
                && release_mutex(mutex)
            ? 0
            : 2;
    });
    until_asleep(child.id());
    EXPECT_TRUE(release_mutex(mutex));
    EXPECT_TRUE(release_mutex(second));
    EXPECT_FALSE(release_mutex(second));
    EXPECT_EQ(last_error(), 288U);
    EXPECT_EQ(child.result(), 0);
}

TEST(named_mutex, stays_owned_when_its_handle_is_closed)
{
    time_limit const seconds(20);
    std::string const name = fresh_name();
    object const watcher(create_mutex(false, name.c_str()));
    zel::atomic<std::uint32_t> step{0};
    std::thread owner([&] {
        {
            object const handle(open_mutex(mutex_all_access, false, name.c_str()));
            EXPECT_EQ(handle.wait(), wait_object_0);
        }
        step = 1;
        wait_on_address(step, 1, -1, false);
    });
    while (step != 1) {
        std::this_thread::yield();
    }
    EXPECT_EQ(watcher.wait(20), wait_timeout);
    step = 2;
    wake_address(step, 1, false);
    owner.join();
    EXPECT_EQ(watcher.wait(10'000), wait_abandoned);
    EXPECT_TRUE(release_mutex(watcher));

    std::string const other = fresh_name();
    void * const left = create_mutex(true, other.c_str());
    EXPECT_TRUE(close_handle(left));
    EXPECT_EQ(open_mutex(mutex_all_access, false, other.c_str()), nullptr)
        << "an owner without a handle does not keep the name";
}

TEST(named_objects, survive_the_death_of_their_users)
{
    time_limit const seconds(100);
    constexpr int processes = 200;
    std::string const name = fresh_name();
    counters & count = shared_counters();
    {
        object const mutex(create_mutex(false, (name + "m").c_str()));
        object const semaphore(create_semaphore(3, 3, (name + "s").c_str()));
        object const event(create_event(false, true, (name + "e").c_str()));
        // A user is inside at most a microsecond at a time, so most are killed in the operations
        // themselves.
        auto const use = [&] {
            object const own_mutex(open_mutex(mutex_all_access, false, (name + "m").c_str()));
            for (;;) {
                if (own_mutex.wait(10'000) <= wait_abandoned) {
                    count.values[0] += 1;
                    release_mutex(own_mutex);
                }
                if (semaphore.wait(10) == wait_object_0) {
                    count.values[1] += 1;
                }
                release_semaphore(semaphore, 1, nullptr);
                if (event.wait(10) == wait_object_0) {
                    count.values[2] += 1;
                }
                set_event(event);
            }
            return 0;
        };
        unsigned seed = 1;
        std::vector<child_process> users;
        for (int i = 0; i < processes; ++i) {
            if (users.size() == 8) {
                users.erase(users.begin() + static_cast<int>(seed / 65536 % 8));
            }
            users.emplace_back(use);
            seed = seed * 1103515245 + 12345;
            std::this_thread::sleep_for(std::chrono::microseconds(seed / 65536 % 4000));
        }
        // Those that are left make progress, each for itself.
        for (int i = 0; i < 3; ++i) {
            std::int64_t const before = count.values[i];
            for (int wait = 0; wait < 10'000 && count.values[i] == before; ++wait) {
                std::this_thread::sleep_for(1ms);
            }
            EXPECT_NE(count.values[i], before) << i;
        }
        users.clear();
        EXPECT_LE(mutex.wait(10'000), wait_abandoned);
        EXPECT_TRUE(release_mutex(mutex));
        EXPECT_EQ(mutex.wait(0), wait_object_0);
        release_mutex(mutex);
        // What the dead have taken is lost, and what was there never becomes more.
        int units = 0;
        while (semaphore.wait(0) == wait_object_0) {
            ++units;
        }
        EXPECT_LE(units, 3);
        set_event(event);
        EXPECT_EQ(event.wait(0), wait_object_0);
        EXPECT_EQ(event.wait(0), wait_timeout);
    }
    EXPECT_EQ(open_mutex(mutex_all_access, false, (name + "m").c_str()), nullptr);
    EXPECT_EQ(abandoned_files(), 0);
}

} // namespace
