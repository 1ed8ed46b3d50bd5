// SPDX-License-Identifier: MIT
#include "zel/core/auto_ptr.h"
#include "zel/platform/kernel_objects.h"
#include "zel/threads/crit_sect.h"
#include "zel/threads/event.h"
#include "zel/threads/mutex.h"
#include "zel/threads/semaphore.h"

#include "tests/time_limit.h"
#include <functional>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

namespace {

using namespace zel::platform;

template <typename Body> void on_another_thread(Body body) { std::thread(body).join(); }

TEST(sync_exception, composes_its_message)
{
    using sync = zel::sync_obj::exception;
    using kernel = zel::kernel_obj::exception;
    struct {
        zel::exception raised;
        char const * message;
    } rows[] = {
        {sync(sync::failed_to_create, nullptr), "Zel Sync Exception: failed to create"},
        {sync(sync::failed_to_lock, "x"), "Zel Sync Exception: failed to lock x"},
        {sync(sync::failed_to_release, ""), "Zel Sync Exception: failed to release "},
        {sync(sync::exc_type{4}, "x"), " x"},
        {kernel(kernel::invalid_handle, ""), "Zel Kernel Exception: Invalid Handle "},
        {kernel(kernel::failed_to_create_object, "x"),
         "Zel Kernel Exception: Failed To Create Object x"},
    };
    for (auto & row : rows) {
        EXPECT_EQ(row.raised.get_message(), row.message);
    }
}

TEST(sync_objects, raise_without_a_handle)
{
    struct no_event : zel::event {
        no_event() { close_handle(std::exchange(handle, nullptr)); }
    } event;
    struct no_mutex : zel::mutex {
        no_mutex() { close_handle(std::exchange(handle, nullptr)); }
    } mutex;
    struct no_semaphore : zel::semaphore {
        no_semaphore() { close_handle(std::exchange(handle, nullptr)); }
    } semaphore;
    std::function<void()> const calls[] = {
        [&] { event.lock(0); },      [&] { mutex.lock(0); },
        [&] { mutex.unlock(); },     [&] { semaphore.lock(0); },
        [&] { semaphore.unlock(); }, [&] { semaphore.unlock(1, nullptr); },
    };
    for (auto const & call : calls) {
        EXPECT_THROW(call(), zel::kernel_obj::exception);
    }
    EXPECT_FALSE(event.set() || event.reset() || event.pulse()); // these only say so
}

TEST(crit_sect, is_one_threads_at_a_time)
{
    time_limit const limit(20);
    zel::crit_sect section;
    EXPECT_TRUE(section.lock(0) && section.try_lock()); // the holder may take it again
    on_another_thread([&] { EXPECT_FALSE(section.try_lock()); });
    EXPECT_TRUE(section.unlock());
    std::atomic<bool> taken{false};
    std::thread waiter([&] {
        EXPECT_TRUE(section.lock(0)); // the time has no effect: it waits
        taken = true;
        section.unlock();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(taken);
    section.unlock();
    waiter.join();
    EXPECT_TRUE(taken && section.unlock());
    on_another_thread([&] { EXPECT_TRUE(section.try_lock() && section.unlock(9, nullptr)); });

    int count = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 20'000; ++n) {
                section.lock(0);
                ++count;
                section.unlock();
            }
        });
    }
    for (auto & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(count, 80'000);
}

TEST(event, lets_one_through_or_everyone)
{
    time_limit const limit(20);
    zel::event one;
    EXPECT_FALSE(one.lock(0));
    EXPECT_TRUE(one.set() && one.set() && one.unlock()); // set twice is set; unlock does nothing
    EXPECT_TRUE(one.lock(0));
    EXPECT_FALSE(one.lock(30));
    zel::event all(true, true);
    EXPECT_TRUE(all.lock(0) && all.lock(0) && all.unlock() && all.lock(0) && all.reset());
    EXPECT_FALSE(all.lock(0));
    EXPECT_TRUE(one.pulse() && all.pulse()); // nobody waits
    EXPECT_FALSE(one.lock(0) || all.lock(0));

    zel::auto_ptr<zel::event> shared(new zel::event);
    std::thread waiter([shared] { EXPECT_TRUE(shared->lock(0xFFFFFFFF)); });
    shared->set();
    waiter.join();
}

TEST(mutex, belongs_to_a_thread)
{
    time_limit const limit(20);
    zel::mutex mutex(true);
    EXPECT_TRUE(mutex.lock(0)); // twice now
    EXPECT_TRUE(mutex.unlock());
    on_another_thread([&] {
        EXPECT_FALSE(mutex.lock(10));
        EXPECT_FALSE(mutex.unlock());
    });
    EXPECT_TRUE(mutex.unlock());
    EXPECT_FALSE(mutex.unlock());
}

TEST(mutex, tells_once_that_its_owner_has_died)
{
    time_limit const limit(20);
    zel::mutex mutex;
    on_another_thread([&] { EXPECT_TRUE(mutex.lock(0)); });
    EXPECT_FALSE(mutex.lock(1000)); // the caller's all the same
    on_another_thread([&] { EXPECT_FALSE(mutex.lock(0)); });
    EXPECT_TRUE(mutex.unlock());
    EXPECT_FALSE(mutex.unlock());
    EXPECT_TRUE(mutex.lock(0) && mutex.unlock());

    on_another_thread([&] { EXPECT_TRUE(mutex.lock(0)); });
    EXPECT_EQ(wait_for_single_object(mutex.get_handle(), 0), wait_abandoned);
    on_another_thread(
        [&] { EXPECT_EQ(wait_for_single_object(mutex.get_handle(), 0), wait_timeout); });
    EXPECT_TRUE(mutex.unlock());
}

TEST(semaphore, counts_its_units)
{
    zel::semaphore one;
    EXPECT_TRUE(one.lock(0));
    EXPECT_FALSE(one.lock(0));
    EXPECT_TRUE(one.unlock());
    EXPECT_FALSE(one.unlock()); // above the maximum
    EXPECT_TRUE(one.lock(0));
    EXPECT_FALSE(one.lock(0)); // the refused one has not counted

    zel::semaphore many(0, 10);
    std::int32_t before = -1;
    EXPECT_TRUE(many.unlock(5, &before));
    EXPECT_EQ(before, 0);
    for (std::int32_t const count : {6, 0, -1}) {
        EXPECT_FALSE(many.unlock(count, &before));
        EXPECT_EQ(before, 0);
    }
    zel::sync_obj & any = many;
    std::uint32_t untouched = 77;
    EXPECT_TRUE(any.unlock(5, &untouched)); // one unit, whatever the count
    EXPECT_EQ(untouched, 77U);
    EXPECT_TRUE(many.unlock(1, &before));
    EXPECT_EQ(before, 6);
}

} // namespace
