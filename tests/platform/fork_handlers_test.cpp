// SPDX-License-Identifier: MIT
#include "zel/platform/host/fork_handlers.h"

#include "tests/support/processes.h"
#include "tests/support/threads_at_once.h"
#include "tests/support/time_limit.h"
#include <atomic>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <unistd.h>

namespace platform = zel::platform;
using platform::fork_place;

namespace {

thread_local std::string calls; // of the forking thread

template <char Place> void before() noexcept { (calls += 'b') += Place; }
template <char Place> void in_parent() noexcept { (calls += 'p') += Place; }
template <char Place> void in_child() noexcept { (calls += 'c') += Place; }

template <char Place>
constexpr platform::fork_handlers all{before<Place>, in_parent<Place>, in_child<Place>};
constexpr platform::fork_handlers child_only{nullptr, nullptr, in_child<'o'>};

bool add_all()
{
    return platform::add_fork_handlers(fork_place::objects, child_only)
        && platform::add_fork_handlers(fork_place::named_memory, all<'n'>)
        && platform::add_fork_handlers(fork_place::queues, all<'q'>);
}

// The calls in the parent; `is_right(calls in the child)` is asked in the child.
template <typename Check> std::string calls_of_a_fork(Check is_right)
{
    calls.clear();
    EXPECT_TRUE(holds_in_child([&] { return is_right(calls); }));
    return calls;
}

constinit std::mutex held_over_forks;
void lock() noexcept { held_over_forks.lock(); }
void unlock() noexcept { held_over_forks.unlock(); }
constexpr platform::fork_handlers locking{lock, unlock, unlock};

} // namespace

TEST(fork_handlers, are_called_once_a_fork_in_one_order_whoever_registers_them)
{
    run_at_once(8, [](int) { EXPECT_TRUE(add_all()); });
    EXPECT_EQ(calls_of_a_fork([](std::string const & seen) { return seen == "bqbncocncq"; }),
              "bqbnpnpq");
}

TEST(fork_handlers, come_in_pairs_while_threads_fork_and_register)
{
    time_limit const limit(60);
    ASSERT_TRUE(add_all()); // the very first call cannot see a fork that is under way
    std::atomic<bool> added{false};
    run_at_once(4, [&](int thread) {
        if (thread == 0) {
            ::usleep(2000);
            EXPECT_TRUE(platform::add_fork_handlers(fork_place::threads, locking));
            added = true;
        }
        for (int late = 0; late < 20; late += added ? 1 : 0) {
            // Neither process gives a lock back that it has not taken, nor keeps one.
            calls_of_a_fork([](std::string const &) { return held_over_forks.try_lock(); });
        }
    });
    EXPECT_TRUE(held_over_forks.try_lock());
    held_over_forks.unlock();
}
