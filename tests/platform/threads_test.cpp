// SPDX-License-Identifier: MIT
#include "zel/platform/threads/threads.h"

#include "zel/platform/last_error.h"
#include "zel/platform/message_queue.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/handles.h"

#include "tests/support/processes.h"
#include "tests/support/sanitizers.h"
#include "tests/support/time_limit.h"
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <grp.h>
#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

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
    {
        begin_thread(
            [](void * self) {
                current = static_cast<worker *>(self);
                return current->body_();
            },
            this, &id, &handle_);
    }
    ~worker()
    {
        wait();
        EXPECT_TRUE(close_thread(handle_));
    }

    static thread_local worker const * current;
    zel::atomic<std::uint32_t> id{0};

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
    std::function<unsigned()> body_;
    void * handle_ = nullptr;
};
thread_local worker const * worker::current = nullptr;

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
    for (int i = 0; i < 500; ++i) {
        worker const thread([] {
            auto const & its = *worker::current;
            return its.handle() != nullptr && its.id.load() == current_thread_id() ? 7u : 8u;
        });
        ASSERT_EQ(thread.wait(), 0u);
        EXPECT_EQ(thread.exit_code(), 7u);
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
    std::ptrdiff_t before = 0;
    auto const mappings = [] {
        std::ifstream file("/proc/self/maps");
        return std::count(std::istreambuf_iterator<char>(file), {}, '\n');
    };
    for (int const count : {100, 1'000}) { // the C library keeps some stacks for the next threads
        before = mappings();
        for (int i = 0; i < count; ++i) {
            ASSERT_TRUE(close_thread(begin_thread([](void *) { return 0u; }, nullptr, nullptr)));
        }
        ASSERT_TRUE(becomes_true([] { return tasks() <= 2; }));
    }
    EXPECT_LT(mappings(), before + 100); // a stack makes two
    worker const last([] { return 0u; });
    EXPECT_LT(slot_of(last.handle())->number, 1'000u); // slots are used again
}

TEST_F(threads, begin_at_normal_priority_and_have_what_the_host_grants)
{
    // In a child, which may give up the right to raise priorities.
    EXPECT_TRUE(holds_in_child([] {
        bool good = true;
        for (bool const may_raise : {true, false}) {
            rlimit const none{0, 0};
            good = good
                && (may_raise || (::setrlimit(RLIMIT_NICE, &none) == 0 && become_ordinary_user()));
            worker const lowered([&] {
                bool const raises = ::setpriority(PRIO_PROCESS, 0, -1) == 0;
                ::setpriority(PRIO_PROCESS, 0, 12);
                worker const made([] { return unsigned(::getpriority(PRIO_PROCESS, 0)); });
                made.wait();
                return made.exit_code() == (raises ? 0u : 12u) ? 1u : 0u;
            });
            good = good && lowered.wait() == 0 && lowered.exit_code() == 1;
        }
        std::atomic<bool> go{false};
        worker const thread([&] { return run_until(go); });
        void * const it = thread.handle();
        for (std::int32_t const priority : {0, -1, -2, -15}) {
            // A process may have begun lower than that.
            good = good && (set_thread_priority(it, priority) || ::getpriority(PRIO_PROCESS, 0) > 0)
                && (priority > -2 || get_thread_priority(it) == priority);
        }
        good = good && !set_thread_priority(it, 2) && last_error() == error_access_denied
            && !set_thread_priority(it, 3) && last_error() == error_invalid_parameter
            && get_thread_priority(it) == -15;
        go.store(true);
        return good && thread.wait() == 0 && get_thread_priority(it) == priority_error;
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
    own = begin_thread([](void *) { return ::pthread_setspecific(key, &key) == 0 ? 5u : 6u; },
                       nullptr, nullptr);
    std::thread waiter([] { EXPECT_EQ(wait_for_thread(own, -1), 0u); });
    ASSERT_TRUE(becomes_true([] { return state == 3; }));
    std::uint32_t code = 0;
    EXPECT_EQ(wait_for_thread(own, 0), 258u);
    EXPECT_EQ(wait_for_thread(own, moment_after(20)), 258u);
    EXPECT_TRUE(get_exit_code_thread(own, code) && code == still_active);
    state = 10;
    state.notify_all();
    waiter.join();
    EXPECT_EQ(state, 20);
    ::pthread_key_delete(key);
}

#ifndef _LIBCPP_VERSION // whose own unwinder does not bear that of libgcc
TEST_F(threads, are_not_cancelled_inside_the_layer)
{
    static std::atomic<bool> go;
    static std::atomic<bool> has_passed;
    go = has_passed = false;
    worker const other([] { return run_until(go); });
    pthread_t thread{};
    auto const body = [](void * handle) -> void * {
        int const descriptor = message_queue_descriptor();
        ::pthread_cancel(::pthread_self());
        tagMSG message{};
        bool good = descriptor >= 0 && post_message(nullptr, 1, 0, 0) // writes, and is full
            && peek_message(message, nullptr, 0, 0, peek_remove)
            && wait_for_thread(handle, moment_after(1)) == 258;
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
    EXPECT_TRUE(has_passed && result == PTHREAD_CANCELED);
}
#endif

TEST_F(threads, work_in_a_forked_child)
{
    std::atomic<bool> go{false};
    worker const thread([&] { return run_until(go); });
    std::uint32_t const parent_id = current_thread_id();
    EXPECT_TRUE(holds_in_child([&] {
        // The parent's thread does not exist here.
        bool const good = current_thread_id() != parent_id
            && wait_for_thread(thread.handle(), -1) == 0 && thread.exit_code() == failed
            && close_thread(thread.handle());
        return good && (under_thread_sanitizer || [] {
                   worker const own([] { return 8u; });
                   return own.wait() == 0 && own.exit_code() == 8;
               }());
    }));
    go.store(true);
    EXPECT_EQ(thread.wait(), 0u);
    EXPECT_EQ(thread.exit_code(), 9u);
}

// The situations inside the C library are those of soak/threads_soak.cpp.
TEST_F(thread_stops, hold_a_thread_wherever_it_is_and_end_it_there)
{
    static int pipe_ends[2];
    static constinit zel::atomic<std::uint32_t> never_changed{0};
    void (*const occupations[])() = {
        [] {},
        []() noexcept {
            char byte = 0;
            if (::read(pipe_ends[0], &byte, 1) < 0) {
                std::abort(); // EINTR never shows here
            }
        },
        [] {
            uninterrupted const guard;
            wait_interruptibly(never_changed, 0, monotonic_now() + 200'000, false);
            stop_if_told();
        },
        [] {
            window_handle const window = create_window([](auto...) { return std::intptr_t{0}; });
            tagMSG message{};
            if (!post_message(window, 1, 0, 0) || get_message_a(message, nullptr, 0, 0) != 1
                || !destroy_window(window)) {
                std::abort();
            }
        },
    };
    static std::atomic<int> destroyed;
    pthread_key_t key{};
    ASSERT_EQ(::pthread_key_create(&key, [](void *) { destroyed.fetch_add(1); }), 0);
    pthread_mutexattr_t robust;
    ::pthread_mutexattr_init(&robust);
    ::pthread_mutexattr_setrobust(&robust, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_t mutex;
    ::pthread_mutex_init(&mutex, &robust);
    for (int i = 0; i < 600; ++i) {
        SCOPED_TRACE(i);
        bool const ends_itself = i % 3 == 0;
        destroyed = 0;
        std::atomic<std::uint64_t> turns{0};
        std::atomic<bool> leave{false};
        ASSERT_EQ(::pipe(pipe_ends), 0);
        worker const victim([&] {
            ::pthread_mutex_lock(&mutex);
            struct witness {
                ~witness() { destroyed.fetch_add(1); }
            } const object;
            bool const is_clean = ::pthread_getspecific(key) == nullptr; // though others had one
            ::pthread_setspecific(key, &key);
            do {
                turns.fetch_add(1);
                occupations[i % 4]();
            } while (!leave.load());
            return is_clean ? 5u : 6u;
        });
        std::thread waiter([&] { EXPECT_EQ(victim.wait(), 0u); });
        bool const has_begun = i % 5 != 0; // else it may be in the middle of its start
        ASSERT_TRUE(!has_begun || becomes_true([&] { return turns.load() > 0; }));
        for (int holds = 0; holds < 3; ++holds) {
            ASSERT_EQ(suspend_thread(victim.handle()), 0u);
            std::uint64_t const before = turns.load();
            std::this_thread::sleep_for(i % 20 == 0 ? 2ms : 0ms);
            EXPECT_EQ(turns.load(), before);
            if (holds < 2 || ends_itself || i / 4 % 2 == 0) { // else it ends suspended
                ASSERT_EQ(resume_thread(victim.handle()), 1u);
            }
        }
        leave = ends_itself;
        EXPECT_EQ(::write(pipe_ends[1], "", ends_itself ? 1 : 0), ends_itself ? 1 : 0);
        EXPECT_TRUE(ends_itself || terminate_thread(victim.handle(), 77));
        waiter.join();
        EXPECT_EQ(victim.exit_code(), ends_itself ? 5u : 77u);
        EXPECT_EQ(destroyed.load(), ends_itself ? 2 : 0);
        if (has_begun) {
            EXPECT_EQ(::pthread_mutex_trylock(&mutex), EOWNERDEAD);
            ::pthread_mutex_consistent(&mutex);
            ::pthread_mutex_unlock(&mutex);
        }
        EXPECT_TRUE(terminate_thread(victim.handle(), 78)); // nothing to end, and harmless
        EXPECT_EQ(victim.exit_code(), ends_itself ? 5u : 77u);
        EXPECT_EQ(suspend_thread(victim.handle()), failed);
        EXPECT_EQ(last_error(), error_access_denied);
        ::close(pipe_ends[0]);
        ::close(pipe_ends[1]);
    }
    ::pthread_key_delete(key);
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
    auto const begin = std::chrono::steady_clock::now();
    for (std::uint32_t i = 127; i > 0; --i) {
        EXPECT_EQ(thread.wait(0), 258u);
        EXPECT_EQ(thread.wait(1), 258u);
        ASSERT_EQ(resume_thread(thread.handle()), i);
    }
    EXPECT_EQ(thread.wait(), 0u);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 127ms);
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
            [](void *) {
                std::this_thread::yield();
                return 1u;
            },
            nullptr, nullptr);
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
        std::atomic<worker const *> workers[2]{};
        auto const body = [&](int own) {
            worker const * other = nullptr;
            while ((other = workers[1 - own].load()) == nullptr) { }
            if (ends) {
                terminate_thread(other->handle(), 3);
            } else {
                suspend_thread(other->handle());
            }
            return 4u;
        };
        worker const first([&] { return body(0); });
        worker const second([&] { return body(1); });
        workers[0] = &first;
        workers[1] = &second;
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
    state = 0;
    worker const thread([&] {
        set_thread_teardown([](void *) { state += 10; }, nullptr);
        EXPECT_EQ(suspend_thread(worker::current->handle()), 0u);
        state += 1;
        terminate_thread(worker::current->handle(), 44);
        state += 100;
        return 1u;
    });
    EXPECT_EQ(thread.wait(5), 258u);
    EXPECT_EQ(state, 0);
    while (resume_thread(thread.handle()) == 0) { }
    EXPECT_EQ(thread.wait(), 0u);
    EXPECT_EQ(thread.exit_code(), 44u);
    EXPECT_EQ(state, 11);
}

bool refuses_stops(worker const & thread)
{
    bool const good
        = suspend_thread(thread.handle()) == failed && last_error() == error_signal_refused;
    set_last_error(0);
    return good && !terminate_thread(thread.handle(), 1) && last_error() == error_signal_refused
        && resume_thread(thread.handle()) == 0;
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
        state.wait(0); // its maker blocks all signals, but this thread does not
        ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
        state.store(2);
        while (state.load() == 2) { }
        ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
        return 6u;
    });
    ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
    EXPECT_EQ(suspend_thread(thread.handle()), 0u);
    EXPECT_EQ(resume_thread(thread.handle()), 1u);
    state.store(1);
    state.notify_all();
    ASSERT_TRUE(becomes_true([&] { return state.load() == 2; }));
    EXPECT_TRUE(refuses_stops(thread));
    state.store(3);
    EXPECT_EQ(thread.wait(), 0u);
    EXPECT_EQ(thread.exit_code(), 6u);
}

TEST_F(thread_stops, are_refused_where_the_host_has_no_room_for_the_signal)
{
    EXPECT_TRUE(holds_in_child([] {
        rlimit const none{0, 0};
        std::atomic<bool> runs{false};
        std::atomic<bool> go{false};
        worker const other([&] {
            runs = true;
            return run_until(go);
        });
        bool const good = becomes_true([&] { return runs.load(); })
            && ::setrlimit(RLIMIT_SIGPENDING, &none) == 0 && refuses_stops(other);
        worker const itself([] { // which is no stranger to the host
            suspend_thread(worker::current->handle());
            return 7u;
        });
        while (resume_thread(itself.handle()) == 0) { }
        go = true;
        return good && itself.wait() == 0 && itself.exit_code() == 7 && other.wait() == 0;
    }));
}

} // namespace
