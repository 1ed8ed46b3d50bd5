// SPDX-License-Identifier: MIT
#include "zel/platform/threads.h"

#include "zel/platform/address_wait.h"
#include "zel/platform/handles.h"
#include "zel/platform/last_error.h"
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using namespace zel::platform;
using namespace std::chrono_literals;

// The thread sanitizer puts signals off until the victim next calls into its runtime, and takes a
// thread that ends by the bare system call for one that runs on.
#if defined(__SANITIZE_THREAD__)
constexpr bool can_stop_threads = false;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
constexpr bool can_stop_threads = false;
#else
constexpr bool can_stop_threads = true;
#endif
#else
constexpr bool can_stop_threads = true;
#endif

constexpr std::uint32_t failed = 0xFFFFFFFF;

// Ends the program when a test takes longer: a thread that is lost cannot be waited for.
class limit {
public:
    explicit limit(unsigned seconds) { ::alarm(seconds); }
    ~limit() { ::alarm(0); }
};

// A thread of the layer that runs a function; waits for it in the end.
class worker {
public:
    explicit worker(std::function<unsigned()> body)
        : body_(std::move(body))
        , handle_(begin_thread(call, this, &id_))
    {
    }
    ~worker()
    {
        wait();
        EXPECT_TRUE(close_thread(handle_));
    }

    void * handle() const { return handle_; }
    std::uint32_t id() const { return id_; }
    std::uint32_t wait(std::uint32_t milliseconds = 20'000) const
    {
        return wait_for_thread(handle_, milliseconds == 0 ? 0 : moment_after(milliseconds));
    }
    std::uint32_t exit_code() const
    {
        std::uint32_t code = 0;
        EXPECT_TRUE(get_exit_code_thread(handle_, code));
        return code;
    }

private:
    static unsigned call(void * self) { return static_cast<worker *>(self)->body_(); }

    std::function<unsigned()> body_;
    std::atomic<std::uint32_t> id_{0};
    void * handle_;
};

// Whether `counter` moves within the time.
bool moves(std::atomic<std::uint64_t> const & counter, std::chrono::milliseconds time)
{
    std::uint64_t const before = counter.load();
    auto const until = std::chrono::steady_clock::now() + time;
    while (counter.load() == before) {
        if (std::chrono::steady_clock::now() >= until) {
            return false;
        }
        std::this_thread::sleep_for(100us);
    }
    return true;
}

template <class Condition> bool becomes_true(Condition condition)
{
    for (int i = 0; i < 20'000 && !condition(); ++i) {
        std::this_thread::sleep_for(1ms);
    }
    return condition();
}

std::size_t count_of(char const * folder)
{
    std::size_t count = 0;
    for ([[maybe_unused]] auto const & entry : std::filesystem::directory_iterator(folder)) {
        ++count;
    }
    return count;
}

TEST(threads, have_handle_and_id_before_the_body_runs)
{
    limit const seconds(60);
    struct shared {
        std::atomic<std::uint32_t> id{0};
        void * handle = nullptr;
        std::uint32_t seen_id = 0;
        void * seen_handle = nullptr;
        std::uint32_t own_id = 0;
    };
    for (int i = 0; i < 500; ++i) {
        shared data;
        void * const handle = begin_thread(
            [](void * argument) {
                auto & its = *static_cast<shared *>(argument);
                its.seen_id = its.id;
                its.seen_handle = its.handle;
                its.own_id = current_thread_id();
                return 7u;
            },
            &data, &data.id, &data.handle);
        ASSERT_NE(handle, nullptr);
        ASSERT_EQ(wait_for_thread(handle, -1), 0u);
        EXPECT_EQ(data.seen_handle, handle);
        EXPECT_EQ(data.seen_id, data.own_id);
        EXPECT_NE(data.own_id, current_thread_id());
        std::uint32_t code = 0;
        EXPECT_TRUE(get_exit_code_thread(handle, code));
        EXPECT_EQ(code, 7u);
        EXPECT_TRUE(close_thread(handle));
    }
}

TEST(threads, are_waited_for_until_the_time_is_over)
{
    limit const seconds(60);
    std::atomic<bool> go{false};
    worker const thread([&] {
        while (!go.load()) {
            std::this_thread::sleep_for(1ms);
        }
        return 9u;
    });
    EXPECT_EQ(thread.exit_code(), still_active);
    EXPECT_EQ(thread.wait(0), 258u);
    auto const begin = std::chrono::steady_clock::now();
    EXPECT_EQ(thread.wait(30), 258u);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 30ms);
    go.store(true);
    EXPECT_EQ(thread.wait(), 0u);
    EXPECT_EQ(thread.wait(0), 0u);
    EXPECT_EQ(thread.exit_code(), 9u);
}

TEST(threads, refuse_what_is_no_handle_of_a_living_object)
{
    void * closed = nullptr;
    {
        worker const thread([] { return 0u; });
        closed = thread.handle();
    }
    void * const rows[] = {nullptr, closed, reinterpret_cast<void *>(~std::uintptr_t{0}), &closed};
    for (void * const row : rows) {
        SCOPED_TRACE(row);
        std::uint32_t code = 0;
        std::atomic<std::uint32_t> const word{0};
        std::function<bool()> const calls[] = {
            [&] { return wait_for_thread(row, 0) != failed; },
            [&] { return close_thread(row); },
            [&] { return suspend_thread(row) != failed; },
            [&] { return resume_thread(row) != failed; },
            [&] { return terminate_thread(row, 1); },
            [&] { return get_exit_code_thread(row, code); },
            [&] { return get_thread_priority(row) != priority_error; },
            [&] { return set_thread_priority(row, 0); },
            [&] { return wait_for_thread_or_change(row, word, 0, 0) != failed; },
        };
        for (auto const & call : calls) {
            set_last_error(0);
            EXPECT_FALSE(call());
            EXPECT_EQ(last_error(), error_invalid_handle);
        }
    }
}

TEST(threads, leave_neither_stacks_nor_handles_when_dropped)
{
    limit const seconds(60);
    static std::atomic<int> runs{0};
    auto const drop = [](int count) {
        runs.store(0);
        for (int i = 0; i < count; ++i) {
            void * const handle = begin_thread(
                [](void *) {
                    runs.fetch_add(1);
                    return 0u;
                },
                nullptr, nullptr);
            ASSERT_NE(handle, nullptr);
            ASSERT_TRUE(close_thread(handle));
        }
        ASSERT_TRUE(becomes_true([&] { return runs.load() == count; }));
        ASSERT_TRUE(becomes_true([] { return count_of("/proc/self/task") <= 2; }));
    };
    drop(100); // the C library keeps some stacks for the next threads
    auto const mapped = [] {
        std::FILE * const file = std::fopen("/proc/self/statm", "r");
        unsigned long pages = 0;
        EXPECT_EQ(std::fscanf(file, "%lu", &pages), 1);
        std::fclose(file);
        return pages;
    };
    unsigned long const before = mapped();
    drop(1'000);
    EXPECT_LT(mapped(), before + 100'000'000 / 4096); // less than fourteen stacks more
    void * const last = begin_thread([](void *) { return 0u; }, nullptr, nullptr);
    EXPECT_LT(slot_of(last) - handle_table.load(), 1'000); // slots are used again
    EXPECT_EQ(wait_for_thread(last, -1), 0u);
    EXPECT_TRUE(close_thread(last));
}

TEST(threads, call_their_teardown_after_their_own_destructors)
{
    limit const seconds(60);
    static std::vector<int> order;
    struct local {
        ~local() { order.push_back(1); }
    };
    static int value = 2;
    auto const set = [] {
        thread_local local object;
        static_cast<void>(&object);
        EXPECT_TRUE(set_thread_teardown(
            [](void * data) { order.push_back(*static_cast<int *>(data)); }, &value));
    };
    for (bool const own : {true, false}) {
        SCOPED_TRACE(own);
        order.clear();
        if (own) {
            worker const thread([&] {
                set();
                return 0u;
            });
            EXPECT_EQ(thread.wait(), 0u);
        } else {
            std::thread(set).join();
        }
        EXPECT_EQ(order, (std::vector{1, 2}));
    }
}

TEST(threads, count_suspensions_to_127)
{
    if (!can_stop_threads) {
        GTEST_SKIP();
    }
    limit const seconds(60);
    std::atomic<std::uint64_t> counter{0};
    std::atomic<bool> stop{false};
    worker const thread([&] {
        while (!stop.load()) {
            counter.fetch_add(1);
        }
        return 0u;
    });
    ASSERT_TRUE(moves(counter, 10s));
    EXPECT_EQ(resume_thread(thread.handle()), 0u);
    for (std::uint32_t i = 0; i < 127; ++i) {
        ASSERT_EQ(suspend_thread(thread.handle()), i);
    }
    EXPECT_EQ(suspend_thread(thread.handle()), failed);
    EXPECT_EQ(last_error(), error_signal_refused);
    for (std::uint32_t i = 127; i > 0; --i) {
        EXPECT_FALSE(i % 32 == 0 && moves(counter, 5ms));
        ASSERT_EQ(resume_thread(thread.handle()), i);
    }
    EXPECT_TRUE(moves(counter, 10s));
    stop.store(true);
    EXPECT_EQ(thread.wait(), 0u);
    EXPECT_EQ(suspend_thread(thread.handle()), failed);
    EXPECT_EQ(last_error(), error_access_denied);
    EXPECT_EQ(resume_thread(thread.handle()), 0u);
}

} // namespace
