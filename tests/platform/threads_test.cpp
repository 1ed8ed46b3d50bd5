// SPDX-License-Identifier: MIT
#include "zel/platform/threads/threads.h"

#include "zel/platform/last_error.h"
#include "zel/platform/message_queue.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/handles.h"

#include "tests/support/processes.h"
#include "tests/support/sanitizers.h"
#include "tests/support/threads_at_once.h"
#include "tests/support/time_limit.h"
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <grp.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

// A terminated thread leaves what it has from the heap, which the leak sanitizer must not count.
// (The second one: a stack is not followed through the C library's sorting.)
extern "C" char const * __lsan_default_suppressions()
{
    return "leak:busy_worker\nleak:msort_with_tmp";
}

namespace {

using namespace zel::platform;
using namespace std::chrono_literals;

constexpr std::uint32_t failed = 0xFFFFFFFF;

class threads : public testing::Test {
    time_limit const limit_{100};
};

class thread_stops : public threads {
protected:
    void SetUp() override { SKIP_IF_THREADS_CANNOT_BE_STOPPED(); }
};

// A thread of the layer that runs a function; waits for it in the end.
class worker {
public:
    explicit worker(std::function<unsigned()> body)
        : body_(std::move(body))
        , handle_(begin_thread(call, this, nullptr))
    {
    }
    ~worker()
    {
        wait();
        EXPECT_TRUE(close_thread(handle_));
    }

    void * handle() const { return handle_; }
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
    void * handle_;
};

unsigned run_until(std::atomic<bool> const & flag)
{
    while (!flag.load()) {
        std::this_thread::sleep_for(1ms);
    }
    return 9;
}

template <class Condition> bool becomes_true(Condition condition)
{
    for (int i = 0; i < 200'000 && !condition(); ++i) {
        std::this_thread::sleep_for(100us);
    }
    return condition();
}

std::ptrdiff_t tasks()
{
    std::filesystem::directory_iterator const begin("/proc/self/task");
    return std::distance(begin, std::filesystem::directory_iterator())
        - ZEL_TEST_EMULATED; // an emulator has a thread of its own
}

TEST_F(threads, have_handle_and_id_before_the_body_runs)
{
    struct shared {
        zel::atomic<std::uint32_t> id{0};
        void * handle = nullptr;
    };
    auto const body = [](void * argument) {
        auto const & its = *static_cast<shared *>(argument);
        return its.handle != nullptr && its.id.load() == current_thread_id() ? 7u : 8u;
    };
    for (int i = 0; i < 500; ++i) {
        shared data;
        void * const handle = begin_thread(body, &data, &data.id, &data.handle);
        ASSERT_EQ(wait_for_thread(handle, -1), 0u);
        std::uint32_t code = 0;
        EXPECT_TRUE(get_exit_code_thread(handle, code));
        EXPECT_EQ(code, 7u);
        EXPECT_TRUE(close_thread(handle));
    }
}

TEST_F(threads, refuse_what_is_no_handle_of_a_living_object)
{
    void * closed = nullptr;
    {
        worker const thread([] { return 0u; });
        closed = thread.handle();
    }
    std::uint32_t code = 0;
    zel::atomic<std::uint32_t> const word{0};
    std::function<bool(void *)> const calls[] = {
        [](void * it) { return wait_for_thread(it, 0) != failed; },
        [](void * it) { return close_thread(it); },
        [](void * it) { return suspend_thread(it) != failed; },
        [](void * it) { return resume_thread(it) != failed; },
        [](void * it) { return terminate_thread(it, 1); },
        [&](void * it) { return get_exit_code_thread(it, code); },
        [](void * it) { return get_thread_priority(it) != priority_error; },
        [](void * it) { return set_thread_priority(it, 0); },
        [&](void * it) { return wait_for_thread_or_change(it, word, 0, 0) != failed; },
    };
    for (void * const row : {static_cast<void *>(nullptr), closed, static_cast<void *>(&closed)}) {
        for (auto const & call : calls) {
            SCOPED_TRACE(&call - calls);
            set_last_error(0);
            EXPECT_FALSE(call(row));
            EXPECT_EQ(last_error(), error_invalid_handle);
        }
    }
}

TEST_F(threads, leave_neither_stacks_nor_handles_when_dropped)
{
    static std::atomic<int> runs{0};
    auto const drop = [](int count) {
        runs.store(0);
        for (int i = 0; i < count; ++i) {
            ASSERT_TRUE(close_thread(
                begin_thread([](void *) { return static_cast<unsigned>(runs.fetch_add(1)); },
                             nullptr, nullptr)));
        }
        EXPECT_TRUE(becomes_true([&] { return runs.load() == count && tasks() <= 2; }));
    };
    drop(100); // the C library keeps some stacks for the next threads
    auto const mappings = [] {
        std::ifstream file("/proc/self/maps");
        return std::count(std::istreambuf_iterator<char>(file), {}, '\n');
    };
    auto const before = mappings();
    drop(1'000);
    EXPECT_LT(mappings(), before + 100); // a stack makes two
    worker const last([] { return 0u; });
    EXPECT_LT(slot_of(last.handle())->number, 1'000u); // slots are used again
}

TEST_F(threads, begin_at_normal_priority_and_have_what_the_host_grants)
{
    // In a child, which may give up the right to raise priorities.
    EXPECT_TRUE(holds_in_child([] {
        bool good = true;
        std::atomic<bool> go{false};
        for (bool const may_raise : {true, false}) {
            if (!may_raise) {
                rlimit const none{0, 0};
                good = good && ::setrlimit(RLIMIT_NICE, &none) == 0 && become_ordinary_user();
            }
            worker const lowered([&] {
                bool const raises = ::setpriority(PRIO_PROCESS, 0, -1) == 0;
                ::setpriority(PRIO_PROCESS, 0, 12);
                worker const made([] { return unsigned(::getpriority(PRIO_PROCESS, 0)); });
                made.wait();
                return made.exit_code() == (raises ? 0u : 12u) ? 1u : 0u;
            });
            good = good && lowered.wait() == 0 && lowered.exit_code() == 1;
        }
        worker const thread([&] { return run_until(go); });
        void * const handle = thread.handle();
        for (std::int32_t const priority : {0, -1, -2}) {
            // A process may have begun lower than that.
            good = good
                && (set_thread_priority(handle, priority) || ::getpriority(PRIO_PROCESS, 0) > 0);
        }
        good = good && set_thread_priority(handle, -2) && get_thread_priority(handle) == -2;
        good = good && !set_thread_priority(handle, 2) && last_error() == error_access_denied;
        good = good && !set_thread_priority(handle, 3) && last_error() == error_invalid_parameter;
        good = good && get_thread_priority(handle) == -2;
        good = good && set_thread_priority(handle, -15) && get_thread_priority(handle) == -15;
        go.store(true);
        return good && thread.wait() == 0 && get_thread_priority(handle) == priority_error;
    }));
}

TEST_F(threads, have_not_ended_while_a_destructor_of_a_key_works_on)
{
    static pthread_key_t key;
    static std::atomic<void *> own;
    static std::atomic<int> state; // counts the calls; 10: go on; 20: it has closed its own handle
    own = nullptr;
    state = 0;
    auto const destructor = [](void *) {
        if (state.fetch_add(1) < 2) { // the third call comes after the layer's own
            ::pthread_setspecific(key, &key);
            return;
        }
        state.wait(3);
        state = close_thread(own) ? 20 : 30;
    };
    ASSERT_EQ(::pthread_key_create(&key, destructor), 0);
    own = begin_thread(
        [](void *) {
            ::pthread_setspecific(key, &key);
            return 5u;
        },
        nullptr, nullptr);
    std::thread waiter([] { EXPECT_EQ(wait_for_thread(own, -1), 0u); });
    ASSERT_TRUE(becomes_true([] { return state == 3; }));
    std::uint32_t code = 0;
    EXPECT_EQ(wait_for_thread(own, 0), 258u);
    EXPECT_EQ(wait_for_thread(own, moment_after(20)), 258u);
    EXPECT_TRUE(get_exit_code_thread(own, code));
    EXPECT_EQ(code, still_active);
    state = 10;
    state.notify_all();
    waiter.join();
    EXPECT_EQ(state, 20);
    ::pthread_key_delete(key);
}

#ifndef _LIBCPP_VERSION // whose own unwinder does not bear that of libgcc
TEST_F(threads, are_not_cancelled_inside_the_layer)
{
    std::thread([] {
        static std::atomic<bool> go;
        go = false;
        static std::atomic<bool> has_passed{false};
        worker const other([] { return run_until(go); });
        pthread_t thread{};
        auto const body = [](void * handle) -> void * {
            int const descriptor = message_queue_descriptor();
            ::pthread_cancel(::pthread_self());
            bool good = descriptor >= 0 && post_message(nullptr, 1, 0, 0); // writes, and is full
            tagMSG message{};
            good = good && peek_message(message, nullptr, 0, 0, peek_remove);
            good = good && wait_for_thread(handle, moment_after(1)) == 258;
            go = true;
            good = good && wait_for_thread(handle, -1) == 0;
            worker const own([] { return 3u; });
            has_passed = good && own.wait() == 0;
            ::pthread_testcancel();
            return nullptr;
        };
        ASSERT_EQ(::pthread_create(&thread, nullptr, body, other.handle()), 0);
        void * result = nullptr;
        ::pthread_join(thread, &result);
        EXPECT_EQ(result, PTHREAD_CANCELED);
        EXPECT_TRUE(has_passed);
    }).join();
}
#endif

TEST_F(threads, work_in_a_forked_child)
{
    std::atomic<bool> go{false};
    worker const thread([&] { return run_until(go); });
    std::uint32_t const parent_id = current_thread_id();
    EXPECT_TRUE(holds_in_child([&] {
        std::uint32_t code = 0;
        bool good = current_thread_id() != parent_id;
        // The parent's thread does not exist here.
        good = good && wait_for_thread(thread.handle(), -1) == 0;
        good = good && get_exit_code_thread(thread.handle(), code) && code == failed;
        good = good && close_thread(thread.handle());
        if (!under_thread_sanitizer) {
            worker const own([] { return 8u; });
            good = good && own.wait() == 0 && own.exit_code() == 8;
        }
        return good;
    }));
    go.store(true);
    EXPECT_EQ(thread.wait(), 0u);
    EXPECT_EQ(thread.exit_code(), 9u);
}

TEST_F(threads, have_abandoned_what_they_owned_when_their_end_is_told)
{
    pthread_mutexattr_t robust;
    ::pthread_mutexattr_init(&robust);
    ::pthread_mutexattr_setrobust(&robust, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_t mutex;
    ::pthread_mutex_init(&mutex, &robust);
    for (int i = 0; i < 200; ++i) {
        std::atomic<bool> is_owned{false};
        bool const is_terminated = !under_thread_sanitizer && i % 2 == 0;
        worker const owner([&] {
            ::pthread_mutex_lock(&mutex);
            is_owned.store(true);
            while (is_terminated && is_owned.load()) { } // an empty loop would be undefined
            return 0u;
        });
        ASSERT_TRUE(becomes_true([&] { return is_owned.load(); }));
        EXPECT_TRUE(!is_terminated || terminate_thread(owner.handle(), 0));
        ASSERT_EQ(owner.wait(), 0u);
        ASSERT_EQ(::pthread_mutex_trylock(&mutex), EOWNERDEAD);
        ::pthread_mutex_consistent(&mutex);
        ::pthread_mutex_unlock(&mutex);
    }
}

// What a thread may be doing when it is stopped, one turn of it.
struct occupation {
    char const * name;
    void (*turn)();
};

std::atomic<std::uint64_t> turns{0};
std::atomic<bool> leave{false};
std::atomic<int> destroyed{0};
constinit zel::atomic<std::uint32_t> never_changed{0};
int quiet_pipe[2];
void allocate()
{
    for (std::size_t size = 16; size < 300'000; size *= 3) {
        std::free(std::malloc(size));
    }
}

std::FILE * unbuffered = nullptr;

void load_plug_in()
{
    if (void * const module = ::dlopen(ZEL_TEST_PLUG_IN, RTLD_NOW)) {
        ::dlclose(module);
    }
}

// Takes every lock of the C library that a thread may have left behind.
void use_library()
{
    allocate();
    load_plug_in();
    std::fputs("b", unbuffered);
    std::fclose(std::fopen("/dev/null", "w"));
    ::setenv("ZEL_TEST", "2", 1);
    std::fflush(nullptr);
}

occupation const occupations[] = {
    {"a loop", [] {}},
    {"the heap", allocate},
    {"catch all",
     [] {
         try {
             throw 1;
         } catch (...) {
             turns.fetch_add(1);
             allocate();
         }
     }},
    {"noexcept", []() noexcept { allocate(); }},
    {"a stream", [] { std::fprintf(unbuffered, "%d", 5); }},
    {"opening a file", [] { std::fclose(std::fopen("/dev/null", "w")); }},
    {"loading a module", load_plug_in},
    {"the environment", [] { ::setenv("ZEL_TEST", "1", 1); }},
    {"sorting",
     [] {
         int numbers[] = {30, 10, 20, 50, 40, 0, 92, 81, 90};
         try {
             std::qsort(numbers, 9, sizeof(int), [](void const * a, void const * b) {
                 int const difference = *static_cast<int const *>(a) - *static_cast<int const *>(b);
                 return difference == 2 ? throw difference : difference; // 92 and 90, late
             });
         } catch (int) {
         }
     }},
    {"a bare call", [] { ::sched_yield(); }},
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
    {"a message queue",
     [] {
         window_handle const window = create_window([](auto...) { return std::intptr_t{0}; });
         tagMSG message{};
         if (!post_message(window, 1, 0, 0) || get_message_a(message, nullptr, 0, 0) != 1
             || !destroy_window(window)) {
             std::abort();
         }
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
            struct witness {
                ~witness() { destroyed.fetch_add(1); }
            } const object;
            while (!leave.load()) {
                turns.fetch_add(1);
                work.turn();
            }
            return 5u;
        })
    {
    }
};

class thread_stops_during : public thread_stops, public testing::WithParamInterface<occupation> {
protected:
    thread_stops_during()
    {
        EXPECT_EQ(::pipe(quiet_pipe), 0);
        unbuffered = std::fopen("/dev/null", "w");
        std::setvbuf(unbuffered, nullptr, _IONBF, 0);
        turns.store(0);
        leave.store(false);
        destroyed.store(0);
    }
    ~thread_stops_during() override
    {
        std::fclose(unbuffered);
        ::close(quiet_pipe[1]);
        ::close(quiet_pipe[0]);
    }
};

INSTANTIATE_TEST_SUITE_P(work, thread_stops_during, testing::ValuesIn(occupations),
                         [](auto const & each) {
                             std::string name = each.param.name;
                             std::replace(name.begin(), name.end(), ' ', '_');
                             return name;
                         });

TEST_P(thread_stops_during, hold_a_suspended_thread_until_the_resume)
{
    busy_worker const victim(GetParam());
    ASSERT_TRUE(becomes_true([] { return turns.load() > 0; }));
    bool const blocks = GetParam().name == std::string("a system call");
    for (int i = 0; i < 200; ++i) {
        ASSERT_EQ(suspend_thread(victim.handle()), 0u);
        std::uint64_t const before = turns.load();
        std::this_thread::sleep_for(i % 20 == 0 ? 2ms : 0ms);
        EXPECT_EQ(turns.load(), before);
        ASSERT_EQ(resume_thread(victim.handle()), 1u);
        ASSERT_TRUE(blocks || becomes_true([&] { return turns.load() != before; }));
    }
    leave.store(true);
    ASSERT_EQ(::write(quiet_pipe[1], "", 1), 1);
    EXPECT_EQ(victim.wait(), 0u);
    EXPECT_EQ(victim.exit_code(), 5u);
}

TEST_P(thread_stops_during, end_a_thread_at_once_and_leave_no_lock)
{
    for (int i = 0; i < 60; ++i) {
        std::uint64_t const before = turns.load();
        busy_worker const victim(GetParam());
        std::thread waiter([&] { EXPECT_EQ(victim.wait(), 0u); });
        if (i % 4 != 0) { // else in the middle of its start
            EXPECT_TRUE(becomes_true([&] { return turns.load() != before; }));
        }
        if (i % 3 == 0) { // nobody starts a thread now: it may hold the loader's lock
            EXPECT_EQ(suspend_thread(victim.handle()), 0u);
        }
        EXPECT_TRUE(terminate_thread(victim.handle(), 77));
        waiter.join();
        EXPECT_EQ(victim.exit_code(), 77u);
        EXPECT_EQ(destroyed.load(), 0);

        std::uint64_t const after = turns.load();
        EXPECT_TRUE(terminate_thread(victim.handle(), 78)); // nothing to end, and harmless
        EXPECT_EQ(victim.exit_code(), 77u);
        EXPECT_EQ(suspend_thread(victim.handle()), failed);
        EXPECT_EQ(last_error(), error_access_denied);
        run_at_once(4, [](int n) { n == 0 ? use_library() : allocate(); }); // each in a heap
        EXPECT_EQ(turns.load(), after);
    }
    EXPECT_TRUE(becomes_true([] { return tasks() == 1; }));
}

TEST_F(thread_stops, count_suspensions_to_127)
{
    std::atomic<bool> go{false};
    worker const thread([&] { return run_until(go); });
    EXPECT_EQ(resume_thread(thread.handle()), 0u);
    for (std::uint32_t i = 0; i < 127; ++i) {
        ASSERT_EQ(suspend_thread(thread.handle()), i);
    }
    EXPECT_EQ(suspend_thread(thread.handle()), failed);
    EXPECT_EQ(last_error(), error_signal_refused);
    EXPECT_EQ(thread.exit_code(), still_active);
    go.store(true);
    for (std::uint32_t i = 127; i > 0; --i) {
        EXPECT_EQ(thread.wait(0), 258u);
        auto const begin = std::chrono::steady_clock::now();
        EXPECT_EQ(thread.wait(1), 258u);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, 1ms);
        ASSERT_EQ(resume_thread(thread.handle()), i);
    }
    EXPECT_EQ(thread.wait(), 0u);
    EXPECT_EQ(suspend_thread(thread.handle()), failed);
    EXPECT_EQ(last_error(), error_access_denied);
}

TEST_F(thread_stops, meet_a_start_and_an_end)
{
    for (int i = 0; i < 3'000; ++i) {
        std::atomic<int> steps{0};
        worker const thread([&] {
            while (steps.fetch_add(1) < i % 50 * 20) { }
            return 1u;
        });
        if (suspend_thread(thread.handle()) == failed) {
            ASSERT_EQ(last_error(), error_access_denied);
            continue;
        }
        int const seen = steps.load();
        std::this_thread::yield();
        ASSERT_EQ(steps.load(), seen);
        ASSERT_EQ(thread.exit_code(), still_active);
        ASSERT_EQ(resume_thread(thread.handle()), 1u);
    }
}

TEST_F(thread_stops, meet_an_end_and_the_closing_of_the_handle)
{
    for (int i = 0; i < 3'000; ++i) {
        void * const handle = begin_thread(
            [](void * count) {
                for (auto n = reinterpret_cast<std::intptr_t>(count) % 50 * 20; n > 0; --n) {
                    std::atomic_signal_fence(std::memory_order_seq_cst);
                }
                return 1u;
            },
            reinterpret_cast<void *>(std::intptr_t{i}), nullptr); // it may outlive the test
        ASSERT_NE(handle, nullptr);
        std::thread closer([&] { EXPECT_TRUE(close_thread(handle)); });
        std::this_thread::sleep_for(std::chrono::microseconds(i % 80));
        EXPECT_TRUE(terminate_thread(handle, 2) || last_error() == error_invalid_handle);
        closer.join();
    }
    EXPECT_TRUE(becomes_true([] { return tasks() == 1; }));
}

TEST_F(thread_stops, meet_each_other)
{
    for (int i = 0; i < 300; ++i) {
        bool const ends = i % 2 == 1;
        std::atomic<void *> handles[2]{};
        auto const body = [&](int own) {
            void * other = nullptr;
            while ((other = handles[1 - own].load()) == nullptr) { }
            if (ends) {
                terminate_thread(other, 3);
            } else {
                suspend_thread(other);
            }
            return 4u;
        };
        worker const first([&] { return body(0); });
        worker const second([&] { return body(1); });
        handles[0].store(first.handle());
        handles[1].store(second.handle());
        while (first.wait(1) != 0 || second.wait(1) != 0) { // each may have suspended the other
            resume_thread(first.handle());
            resume_thread(second.handle());
        }
        for (worker const * thread : {&first, &second}) {
            EXPECT_TRUE(thread->exit_code() == 4u || (ends && thread->exit_code() == 3u));
        }
    }
}

TEST_F(thread_stops, are_for_the_thread_itself_too)
{
    static std::atomic<int> state;
    state.store(0);
    std::atomic<void *> own{nullptr};
    worker const thread([&] {
        while (own.load() == nullptr) { }
        set_thread_teardown([](void *) { state.fetch_add(10); }, nullptr);
        EXPECT_EQ(suspend_thread(own.load()), 0u);
        state.fetch_add(1);
        terminate_thread(own.load(), 44);
        state.fetch_add(100);
        return 1u;
    });
    own.store(thread.handle());
    EXPECT_EQ(thread.wait(5), 258u);
    EXPECT_EQ(state.load(), 0);
    while (resume_thread(thread.handle()) == 0) { }
    EXPECT_EQ(thread.wait(), 0u);
    EXPECT_EQ(thread.exit_code(), 44u);
    EXPECT_EQ(state.load(), 11);
}

TEST_F(thread_stops, are_refused_while_the_signal_is_blocked)
{
    std::vector<gid_t> const groups(2'000, 65534); // stand in front of the mask that is looked at
    static_cast<void>(::setgroups(groups.size(), groups.data()) == 0);
    sigset_t all;
    sigset_t old;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_BLOCK, &all, &old);
    std::atomic<int> state{0};
    worker const thread([&] {
        while (state.load() == 0) { } // its maker blocks all signals, but this thread does not
        ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
        state.store(2);
        while (state.load() == 2) { }
        ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
        return 6u;
    });
    EXPECT_EQ(suspend_thread(thread.handle()), 0u);
    EXPECT_EQ(resume_thread(thread.handle()), 1u);
    state.store(1);
    ASSERT_TRUE(becomes_true([&] { return state.load() == 2; }));
    EXPECT_EQ(suspend_thread(thread.handle()), failed);
    EXPECT_EQ(last_error(), error_signal_refused);
    set_last_error(0);
    EXPECT_FALSE(terminate_thread(thread.handle(), 1));
    EXPECT_EQ(last_error(), error_signal_refused);
    EXPECT_EQ(resume_thread(thread.handle()), 0u);
    state.store(3);
    EXPECT_EQ(thread.wait(), 0u);
    EXPECT_EQ(thread.exit_code(), 6u);
    ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

TEST_F(thread_stops, are_refused_where_the_host_has_no_room_for_the_signal)
{
    EXPECT_TRUE(holds_in_child([] {
        rlimit const none{0, 0};
        bool good = ::setrlimit(RLIMIT_SIGPENDING, &none) == 0;
        std::atomic<bool> runs{false};
        std::atomic<bool> go{false};
        worker const other([&] {
            runs = true;
            return run_until(go);
        });
        good = good && becomes_true([&] { return runs.load(); });
        good = good && suspend_thread(other.handle()) == failed;
        good = good && last_error() == error_signal_refused;
        good = good && !terminate_thread(other.handle(), 1) && resume_thread(other.handle()) == 0;
        std::atomic<void *> own{nullptr};
        worker const itself([&] { // which is no stranger to the host
            while (own.load() == nullptr) { }
            suspend_thread(own.load());
            return 7u;
        });
        own = itself.handle();
        while (resume_thread(itself.handle()) == 0) { }
        go = true;
        return good && itself.wait() == 0 && itself.exit_code() == 7 && other.wait() == 0;
    }));
}

TEST_F(thread_stops, leave_nothing_of_a_thread_on_the_stack_for_the_next)
{
    static pthread_key_t key;
    static std::atomic<int> calls{0};
    ASSERT_EQ(::pthread_key_create(&key, [](void *) { calls.fetch_add(1); }), 0);
    for (int i = 0; i < 20; ++i) {
        std::atomic<bool> has_set{false};
        worker const victim([&] {
            EXPECT_EQ(::pthread_getspecific(key), nullptr);
            ::pthread_setspecific(key, &has_set);
            has_set.store(true);
            while (has_set.load()) { } // an empty endless loop would be undefined
            return 0u;
        });
        ASSERT_TRUE(becomes_true([&] { return has_set.load(); }));
        EXPECT_TRUE(terminate_thread(victim.handle(), 0));
    }
    EXPECT_EQ(calls.load(), 0);
    ::pthread_key_delete(key);
}

} // namespace
