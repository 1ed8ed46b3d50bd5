// SPDX-License-Identifier: MIT
#include "zel/platform/threads.h"

#include "zel/platform/address_wait.h"
#include "zel/platform/handles.h"
#include "zel/platform/last_error.h"
#include <atomic>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

// A terminated thread leaves what it has from the heap, which the leak sanitizer must not count.
extern "C" char const * __lsan_default_suppressions()
{
    return "leak:busy_worker";
}

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

#define SKIP_UNLESS_THREADS_CAN_BE_STOPPED()                                                       \
    if (!can_stop_threads) {                                                                       \
        GTEST_SKIP() << "the sanitizer cannot follow it";                                          \
    }

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

// What a thread may be doing when it is stopped. Each goes round in circles, counts, and leaves
// when `leave` is set.
struct occupation {
    char const * name;
    void (*turn)();
};

std::atomic<std::uint64_t> turns{0};
std::atomic<bool> leave{false};
std::atomic<int> destroyed{0};
constinit std::atomic<std::uint32_t> never_changed{0};
int quiet_pipe[2];

struct witness {
    ~witness() { destroyed.fetch_add(1); }
};

void allocate()
{
    for (std::size_t size = 16; size < 300'000; size *= 3) {
        std::free(std::malloc(size));
    }
}

occupation const occupations[] = {
    {"a loop", [] {}},
    {"the heap", allocate},
    {"catch (...)",
     [] {
         try {
             throw 1;
         } catch (...) {
             turns.fetch_add(1);
             allocate();
         }
     }},
    {"noexcept", []() noexcept { allocate(); }},
    {"a sleep", [] { std::this_thread::sleep_for(200us); }},
    {"a system call",
     [] {
         char byte = 0;
         if (::read(quiet_pipe[0], &byte, 1) != 1) {
             std::abort(); // EINTR never shows here
         }
     }},
    {"a wait",
     [] {
         uninterrupted const guard;
         wait_interruptibly(never_changed, 0, monotonic_now() + 200'000, false);
         stop_if_told();
     }},
    {"short work",
     [] {
         uninterrupted const guard;
         allocate();
     }},
};

class busy_worker : public worker {
public:
    explicit busy_worker(occupation const & work)
        : worker([&work] {
            witness const object;
            while (!leave.load()) {
                turns.fetch_add(1);
                work.turn();
            }
            return 5u;
        })
    {
    }
};

class thread_stops : public testing::TestWithParam<occupation> {
protected:
    void SetUp() override
    {
        SKIP_UNLESS_THREADS_CAN_BE_STOPPED();
        ASSERT_EQ(::pipe(quiet_pipe), 0);
        turns.store(0);
        leave.store(false);
        destroyed.store(0);
    }
    void TearDown() override
    {
        ::close(quiet_pipe[1]);
        ::close(quiet_pipe[0]);
    }
    limit seconds_{60};
};

INSTANTIATE_TEST_SUITE_P(during, thread_stops, testing::ValuesIn(occupations),
                         [](auto const & each) {
                             std::string name = each.param.name;
                             for (char & c : name) {
                                 c = std::isalpha(static_cast<unsigned char>(c)) ? c : '_';
                             }
                             return name;
                         });

TEST_P(thread_stops, suspension_holds_until_the_resume)
{
    bool const sleeps_for_good = std::string(GetParam().name) == "a system call";
    busy_worker const victim(GetParam());
    ASSERT_TRUE(becomes_true([] { return turns.load() > 0; }));
    for (int i = 0; i < 300; ++i) {
        ASSERT_EQ(suspend_thread(victim.handle()), 0u);
        std::uint64_t const before = turns.load();
        if (i % 30 == 0) {
            std::this_thread::sleep_for(2ms);
        } else {
            std::this_thread::yield();
        }
        EXPECT_EQ(turns.load(), before);
        ASSERT_EQ(resume_thread(victim.handle()), 1u);
        if (!sleeps_for_good) {
            ASSERT_TRUE(becomes_true([&] { return turns.load() != before; }));
        }
    }
    leave.store(true);
    ASSERT_EQ(::write(quiet_pipe[1], "", 1), 1);
    EXPECT_EQ(victim.wait(), 0u);
    EXPECT_EQ(victim.exit_code(), 5u);
}

TEST_P(thread_stops, termination_runs_nothing_and_leaves_the_heap_usable)
{
    for (int i = 0; i < 60; ++i) {
        std::uint64_t const before = turns.load();
        busy_worker const victim(GetParam());
        if (i % 4 != 0) { // else in the middle of its start
            ASSERT_TRUE(becomes_true([&] { return turns.load() != before; }));
        }
        if (i % 3 == 0) {
            ASSERT_EQ(suspend_thread(victim.handle()), 0u);
        }
        std::thread waiter([&] { EXPECT_EQ(victim.wait(), 0u); });
        EXPECT_TRUE(terminate_thread(victim.handle(), 77));
        waiter.join();
        EXPECT_EQ(victim.wait(0), 0u);
        EXPECT_EQ(victim.exit_code(), 77u);
        EXPECT_EQ(destroyed.load(), 0);

        std::uint64_t const after = turns.load();
        EXPECT_TRUE(terminate_thread(victim.handle(), 78)); // nothing to end, and harmless
        EXPECT_EQ(victim.exit_code(), 77u);
        EXPECT_EQ(suspend_thread(victim.handle()), failed);
        EXPECT_EQ(last_error(), error_access_denied);
        std::vector<std::thread> users; // each takes a heap of the C library
        for (int n = 0; n < 4; ++n) {
            users.emplace_back(allocate);
        }
        for (std::thread & user : users) {
            user.join();
        }
        EXPECT_EQ(turns.load(), after);
    }
    EXPECT_TRUE(becomes_true([] { return count_of("/proc/self/task") == 1; }));
}

TEST(threads, count_suspensions_to_127)
{
    SKIP_UNLESS_THREADS_CAN_BE_STOPPED();
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

TEST(thread_races, suspension_meets_start_and_end)
{
    SKIP_UNLESS_THREADS_CAN_BE_STOPPED();
    limit const seconds(100);
    int refused = 0;
    for (int i = 0; i < 3'000; ++i) {
        std::atomic<std::uint64_t> steps{0};
        worker const thread([&] {
            for (int n = 0; n < i % 50 * 20; ++n) {
                steps.fetch_add(1);
            }
            return 1u;
        });
        std::uint32_t const before = suspend_thread(thread.handle());
        if (before == failed) {
            ASSERT_EQ(last_error(), error_access_denied);
            ++refused;
            continue;
        }
        ASSERT_EQ(before, 0u);
        std::uint64_t const seen = steps.load();
        std::this_thread::yield();
        ASSERT_EQ(steps.load(), seen);
        ASSERT_EQ(thread.exit_code(), still_active);
        ASSERT_EQ(resume_thread(thread.handle()), 1u);
    }
    EXPECT_LT(refused, 3'000);
}

TEST(thread_races, termination_meets_start_and_end_and_the_closing_of_the_handle)
{
    SKIP_UNLESS_THREADS_CAN_BE_STOPPED();
    limit const seconds(100);
    for (int i = 0; i < 3'000; ++i) {
        void * const handle = begin_thread(
            [](void * count) {
                for (int n = *static_cast<int *>(count) % 50 * 20; n > 0; --n) {
                    std::atomic_signal_fence(std::memory_order_seq_cst);
                }
                return 1u;
            },
            &i, nullptr);
        ASSERT_NE(handle, nullptr);
        std::thread closer([&] { EXPECT_TRUE(close_thread(handle)); });
        if (i % 2 == 0) {
            std::this_thread::sleep_for(std::chrono::microseconds(i % 80));
        }
        EXPECT_TRUE(terminate_thread(handle, 2) || last_error() == error_invalid_handle);
        closer.join();
    }
    EXPECT_TRUE(becomes_true([] { return count_of("/proc/self/task") == 1; }));
}

TEST(thread_races, threads_suspend_and_terminate_each_other)
{
    SKIP_UNLESS_THREADS_CAN_BE_STOPPED();
    limit const seconds(100);
    for (int i = 0; i < 300; ++i) {
        std::atomic<void *> handles[2]{};
        auto const body = [&](int own) {
            void * other = nullptr;
            while ((other = handles[1 - own].load()) == nullptr) { }
            if (i % 2 == 0) {
                suspend_thread(other);
            } else {
                terminate_thread(other, 3);
            }
            return 4u;
        };
        worker const first([&] { return body(0); });
        worker const second([&] { return body(1); });
        handles[0].store(first.handle());
        handles[1].store(second.handle());
        // Suspensions may have met: then each is resumed once.
        while (first.wait(1) != 0 || second.wait(1) != 0) {
            resume_thread(first.handle());
            resume_thread(second.handle());
        }
        for (worker const * thread : {&first, &second}) {
            EXPECT_TRUE(thread->exit_code() == 4u || (i % 2 == 1 && thread->exit_code() == 3u));
        }
    }
}

TEST(thread_races, no_wish_to_stop_is_overslept)
{
    SKIP_UNLESS_THREADS_CAN_BE_STOPPED();
    limit const seconds(100);
    std::atomic<std::uint32_t> word{0};
    std::atomic<std::uint64_t> rounds{0};
    worker const sleeper([&] {
        while (word.load() == 0) {
            uninterrupted const guard;
            rounds.fetch_add(1);
            wait_interruptibly(word, 0, -1, false); // only a stop or the end lets it go on
            stop_if_told();
        }
        return 0u;
    });
    for (int i = 0; i < 20'000; ++i) {
        std::uint64_t const before = rounds.load();
        ASSERT_EQ(suspend_thread(sleeper.handle()), 0u);
        ASSERT_EQ(resume_thread(sleeper.handle()), 1u);
        // The next wish meets it anywhere between its resume and its sleep.
        while (rounds.load() == before) {
            std::this_thread::yield();
        }
        for (int n = 0; n < i % 100; ++n) {
            std::atomic_signal_fence(std::memory_order_seq_cst);
        }
    }
    word.store(1);
    wake_address(word, 1, false);
    EXPECT_EQ(sleeper.wait(), 0u);
}

TEST(threads, stop_and_end_themselves)
{
    SKIP_UNLESS_THREADS_CAN_BE_STOPPED();
    limit const seconds(60);
    for (bool const closed : {false, true}) {
        SCOPED_TRACE(closed);
        std::atomic<void *> own{nullptr};
        std::atomic<int> state{0};
        static std::atomic<int> torn_down{0};
        torn_down.store(0);
        std::function<unsigned()> const body = [&] {
            while (own.load() == nullptr) { }
            set_thread_teardown([](void *) { torn_down.fetch_add(1); }, nullptr);
            state.store(1);
            EXPECT_EQ(suspend_thread(own.load()), 0u);
            state.store(2);
            terminate_thread(own.load(), 44);
            state.store(3);
            return 1u;
        };
        void * const handle = begin_thread(
            [](void * function) { return (*static_cast<std::function<unsigned()> *>(function))(); },
            const_cast<std::function<unsigned()> *>(&body), nullptr);
        own.store(handle);
        ASSERT_TRUE(becomes_true([&] { return state.load() == 1; }));
        std::this_thread::sleep_for(5ms);
        EXPECT_EQ(state.load(), 1);
        while (resume_thread(handle) == 0) { }
        EXPECT_EQ(wait_for_thread(handle, -1), 0u);
        std::uint32_t code = 0;
        EXPECT_TRUE(get_exit_code_thread(handle, code));
        EXPECT_EQ(code, 44u);
        EXPECT_EQ(state.load(), 2);
        EXPECT_EQ(torn_down.load(), 1);
        EXPECT_TRUE(close_thread(handle));
    }
}

TEST(threads, have_abandoned_what_they_owned_when_their_end_is_told)
{
    limit const seconds(60);
    pthread_mutexattr_t robust;
    ::pthread_mutexattr_init(&robust);
    ::pthread_mutexattr_setrobust(&robust, PTHREAD_MUTEX_ROBUST);
    for (int i = 0; i < 500; ++i) {
        pthread_mutex_t mutex;
        ::pthread_mutex_init(&mutex, &robust);
        std::atomic<bool> is_owned{false};
        bool const is_terminated = can_stop_threads && i % 2 == 0;
        worker const owner([&] {
            ::pthread_mutex_lock(&mutex);
            is_owned.store(true);
            while (is_terminated) { }
            return 0u;
        });
        while (!is_owned.load()) { }
        if (is_terminated) {
            EXPECT_TRUE(terminate_thread(owner.handle(), 0));
        }
        ASSERT_EQ(owner.wait(), 0u);
        ASSERT_EQ(::pthread_mutex_trylock(&mutex), EOWNERDEAD);
        ::pthread_mutex_unlock(&mutex);
        ::pthread_mutex_destroy(&mutex);
    }
    ::pthread_mutexattr_destroy(&robust);
}

TEST(threads, find_nothing_of_a_terminated_one_on_its_stack)
{
    SKIP_UNLESS_THREADS_CAN_BE_STOPPED();
    limit const seconds(60);
    static pthread_key_t key;
    static std::atomic<int> calls{0};
    ASSERT_EQ(::pthread_key_create(&key, [](void *) { calls.fetch_add(1); }), 0);
    for (int i = 0; i < 20; ++i) {
        std::atomic<bool> has_set{false};
        worker const victim([&] {
            EXPECT_EQ(::pthread_getspecific(key), nullptr);
            ::pthread_setspecific(key, &has_set);
            has_set.store(true);
            for (;;) { }
            return 0u;
        });
        ASSERT_TRUE(becomes_true([&] { return has_set.load(); }));
        EXPECT_TRUE(terminate_thread(victim.handle(), 0));
    }
    EXPECT_EQ(calls.load(), 0);
    ::pthread_key_delete(key);
}

TEST(threads, refuse_to_be_stopped_while_they_block_the_signal)
{
    SKIP_UNLESS_THREADS_CAN_BE_STOPPED();
    limit const seconds(60);
    std::atomic<bool> blocks{false};
    std::atomic<bool> go{false};
    worker const thread([&] {
        sigset_t all;
        sigset_t old;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_BLOCK, &all, &old);
        blocks.store(true);
        while (!go.load()) {
            std::this_thread::sleep_for(1ms);
        }
        ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
        return 6u;
    });
    ASSERT_TRUE(becomes_true([&] { return blocks.load(); }));
    EXPECT_EQ(suspend_thread(thread.handle()), failed);
    EXPECT_EQ(last_error(), error_signal_refused);
    set_last_error(0);
    EXPECT_FALSE(terminate_thread(thread.handle(), 1));
    EXPECT_EQ(last_error(), error_signal_refused);
    EXPECT_EQ(resume_thread(thread.handle()), 0u);
    go.store(true);
    EXPECT_EQ(thread.wait(), 0u);
    EXPECT_EQ(thread.exit_code(), 6u);
}

TEST(threads, can_be_stopped_although_their_maker_blocks_all_signals)
{
    SKIP_UNLESS_THREADS_CAN_BE_STOPPED();
    limit const seconds(60);
    sigset_t all;
    sigset_t old;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &old);
    {
        worker const thread([] {
            for (;;) { }
            return 0u;
        });
        EXPECT_TRUE(terminate_thread(thread.handle(), 1));
    }
    ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

TEST(threads, are_waited_for_together_with_a_word)
{
    limit const seconds(60);
    std::atomic<std::uint32_t> word{5};
    std::atomic<bool> go{false};
    worker const thread([&] {
        std::this_thread::sleep_for(5ms);
        word.store(6);
        wake_address(word, 1, false);
        while (!go.load()) { }
        std::this_thread::sleep_for(5ms);
        return 0u;
    });
    EXPECT_EQ(wait_for_thread_or_change(thread.handle(), word, 5, 0), 258u);
    EXPECT_EQ(wait_for_thread_or_change(thread.handle(), word, 5, 20'000), 1u);
    EXPECT_EQ(wait_for_thread_or_change(thread.handle(), word, 6, 10), 258u);
    go.store(true);
    EXPECT_EQ(wait_for_thread_or_change(thread.handle(), word, 6, 0xFFFFFFFF), 0u);
    EXPECT_EQ(wait_for_thread_or_change(thread.handle(), word, 5, 0), 0u); // the end comes first
}

TEST(threads, work_in_a_forked_child)
{
    limit const seconds(60);
    std::atomic<bool> go{false};
    worker const thread([&] {
        while (!go.load()) {
            std::this_thread::sleep_for(1ms);
        }
        return 3u;
    });
    std::uint32_t const parent_id = current_thread_id();
    pid_t const child = ::fork();
    if (child == 0) {
        ::alarm(20);
        std::uint32_t code = 0;
        bool good = current_thread_id() != parent_id;
        // The parent's thread does not exist here.
        good = good && wait_for_thread(thread.handle(), -1) == 0;
        good = good && get_exit_code_thread(thread.handle(), code) && code == failed;
        good = good && close_thread(thread.handle());
        if (can_stop_threads) { // nor does the sanitizer follow a child that starts threads
            void * const own = begin_thread([](void *) { return 8u; }, nullptr, nullptr);
            good = good && own != nullptr && wait_for_thread(own, -1) == 0;
            good = good && get_exit_code_thread(own, code) && code == 8 && close_thread(own);
        }
        ::_exit(good ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    go.store(true);
    EXPECT_EQ(thread.wait(), 0u);
    EXPECT_EQ(thread.exit_code(), 3u);
}

TEST(threads, have_priorities_that_the_host_grants)
{
    limit const seconds(60);
    // In a child, which may give up the right to raise priorities.
    pid_t const child = ::fork();
    if (child == 0) {
        ::alarm(20);
        rlimit const none{0, 0};
        bool good = ::setrlimit(RLIMIT_NICE, &none) == 0;
        good = good && (::geteuid() != 0 || ::setuid(65534) == 0);
        static std::atomic<bool> go{false};
        void * const handle = begin_thread(
            [](void *) {
                while (!go.load()) {
                    std::this_thread::sleep_for(1ms);
                }
                return 0u;
            },
            nullptr, nullptr);
        good = good && get_thread_priority(handle) == 0;
        good = good && set_thread_priority(handle, -1) && get_thread_priority(handle) == -1;
        good = good && set_thread_priority(handle, -2) && get_thread_priority(handle) == -2;
        good = good && !set_thread_priority(handle, 2) && last_error() == error_access_denied;
        good = good && !set_thread_priority(handle, 3) && last_error() == error_invalid_parameter;
        good = good && get_thread_priority(handle) == -2;
        good = good && set_thread_priority(handle, -15) && get_thread_priority(handle) == -15;
        go.store(true);
        good = good && wait_for_thread(handle, -1) == 0;
        good = good && get_thread_priority(handle) == priority_error && close_thread(handle);
        ::_exit(good ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(threads, show_the_start_of_their_names)
{
    limit const seconds(60);
    worker const thread([] {
        set_thread_name("a name that is too long");
        char shown[32]{};
        EXPECT_EQ(::pthread_getname_np(::pthread_self(), shown, sizeof shown), 0);
        EXPECT_STREQ(shown, "a name that is ");
        return 0u;
    });
}

} // namespace
