// SPDX-License-Identifier: MIT
#include "zel/platform/kernel_objects.h"
#include "zel/platform/threads/threads.h"
#include "zel/threads/event.h"
#include "zel/threads/mutex.h"
#include "zel/threads/process.h"
#include "zel/threads/thread_obj_ex.h"

#include "tests/support/processes.h"
#include "tests/support/raised.h"
#include "tests/support/sanitizers.h"
#include "tests/support/time_limit.h"
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <stdexcept>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

using namespace zel::platform;

// Keeps what a thread reports, and raises where it is told to.
class recorder : public zel::logger {
public:
    std::vector<std::string> lines;
    bool raises = false;

protected:
    void output_buffer(log_type type, zel::string const & text, zel::string const &) override
    {
        lines.push_back(std::to_string(type) + " " + text);
        if (raises) {
            throw std::runtime_error("no output");
        }
    }
};

std::atomic<int> alive{0};

template <typename Base> class task_of : public Base {
public:
    explicit task_of(std::function<unsigned int()> body, zel::auto_ptr<zel::logger> log = nullptr)
        : Base(log, "a name of more than 15 bytes")
        , body_(std::move(body))
    {
        ++alive;
    }
    ~task_of() override { --alive; }

    std::uint32_t exit_code() const
    {
        std::uint32_t code = 0;
        EXPECT_TRUE(get_exit_code_thread(this->get_handle(), code));
        return code;
    }

protected:
    unsigned int run() override { return body_(); }

private:
    std::function<unsigned int()> body_;
};

using task = task_of<zel::thread_obj>;
using task_ptr = zel::auto_ptr<task>;

TEST(thread_obj, has_no_thread_before_its_start)
{
    task_ptr const thread(new task(nullptr));
    std::function<void()> const calls[] = {
        [&] { thread->wait(); },         [&] { thread->terminate(0); },
        [&] { thread->get_priority(); }, [&] { thread->set_priority(0); },
        [&] { thread->suspend(); },      [&] { thread->resume(); },
    };
    for (auto const & call : calls) {
        EXPECT_EQ(message_raised<zel::kernel_obj::exception>(call),
                  "Zel Kernel Exception: Failed To Create Object thread_obj::wait()");
    }
    EXPECT_FALSE(thread->is_started());
    EXPECT_EQ(thread->get_id(), 0U);
    EXPECT_EQ(zel::auto_ptr<zel::process>(new zel::process)->ref_count(), 1U);
}

TEST(thread_obj, ends_with_what_its_work_returns_or_raises)
{
    time_limit const limit(20);
    using failure = zel::sync_obj::exception;
    struct {
        std::function<unsigned int()> work;
        std::uint32_t exit_code;
        char const * report; // before the id; null for none
    } const rows[] = {
        {[] { return 7U; }, 7, nullptr},
        {[]() -> unsigned { throw zel::exception(); }, 0xFFFFFFFF, "Exception 'Unknown Exception'"},
        {[]() -> unsigned { throw failure(failure::failed_to_lock, "x"); }, 0xFFFFFFFF,
         "Exception 'Zel Sync Exception: failed to lock x'"},
        {[]() -> unsigned { throw 5; }, 0xFFFFFFFF, "Unknown exception"},
#ifndef _LIBCPP_VERSION // whose own unwinder does not bear that of libgcc
        {[]() -> unsigned { ::pthread_exit(nullptr); }, 0xFFFFFFFF, nullptr},
#endif
    };
    for (auto const & row : rows) {
        for (int const logger : {0, 1, 2}) { // none, one that works, and one that raises
            SCOPED_TRACE(&row - rows);
            zel::auto_ptr<recorder> const log(new recorder);
            log->raises = logger == 2;
            char shown[16] = {};
            bool was_complete = false;
            task * self = nullptr;
            auto const body = [&] {
                was_complete = self->is_started() && self->get_handle() != nullptr
                    && self->get_id() == static_cast<std::uint32_t>(::gettid());
                ::pthread_getname_np(::pthread_self(), shown, sizeof shown);
                return row.work();
            };
            task_ptr const thread(self = logger == 0 ? new task(body) : new task(body, log));
            thread->start();
            thread->wait();
            thread->wait(); // at once
            EXPECT_TRUE(thread->terminate(0)); // harmless by now
            EXPECT_FALSE(thread->is_started());
            EXPECT_EQ(thread->ref_count(), 1U);
            EXPECT_EQ(thread->exit_code(), row.exit_code);
            EXPECT_TRUE(was_complete);
            EXPECT_STREQ(shown, "a name of more ");
            zel::string expected;
            expected.format("1 %s occured in thread (id=0x%x) '%s'!", row.report, thread->get_id(),
                            thread->get_name().c_str());
            bool const is_told = row.report != nullptr && logger != 0;
            EXPECT_EQ(log->lines, std::vector<std::string>(is_told ? 1 : 0, expected));
            EXPECT_EQ(log->get_error_counter(), log->lines.size());
        }
    }
}

TEST(thread_obj, keeps_itself_while_it_runs)
{
    time_limit const limit(20);
    zel::event go(false, true);
    for (int i = 1; i <= 50; ++i) {
        task_ptr(new task([&] { return go.lock(infinite) ? 0U : 1U; }))->start();
        EXPECT_EQ(alive, i);
    }
    go.set();
    while (alive != 0) {
        std::this_thread::yield();
    }
}

TEST(thread_obj, a_failed_start_takes_nothing)
{
    if (under_address_sanitizer || under_thread_sanitizer) {
        GTEST_SKIP() << "the sanitizer cannot live in so little memory";
    }
    auto const fails_to_start = [] {
        ::rlimit const none{1, 1};
        ::setrlimit(RLIMIT_AS, &none);
        for (int i = 0; i < 1000; ++i) { // the first may get stacks that the runtime has kept
            task * const thread = new task([] { return ::pause() == 0 ? 1U : 0U; });
            if (message_raised<zel::kernel_obj::exception>([&] { thread->start(); })
                == "Zel Kernel Exception: Failed To Create Object thread_obj::start()") {
                return thread->ref_count() == 0 && thread->get_handle() == nullptr;
            }
        }
        return false;
    };
    EXPECT_TRUE(holds_in_child(fails_to_start));
}

TEST(thread_obj, can_be_suspended_and_cut_off)
{
    SKIP_IF_THREADS_CANNOT_BE_STOPPED();
    time_limit const limit(20);
    zel::auto_ptr<recorder> const log(new recorder);
    std::atomic<bool> runs{false};
    auto const body = [&] {
        for (runs = true; runs;) { }
        return 0U;
    };
    task * const thread = new task(body, log);
    thread->inc_ref();
    thread->start();
    while (!runs) { }
    EXPECT_TRUE(thread->suspend() == 0 && thread->suspend() == 1);
    EXPECT_TRUE(thread->resume() == 2 && thread->resume() == 1 && thread->resume() == 0);
    EXPECT_TRUE(thread->set_priority(-2) && !thread->set_priority(7));
    EXPECT_EQ(thread->get_priority(), -2);
    EXPECT_TRUE(thread->terminate(9));
    thread->wait();
    EXPECT_EQ(thread->exit_code(), 9U);
    EXPECT_TRUE(thread->is_started() && log->lines.empty());
    EXPECT_EQ(thread->ref_count(), 2U); // the thread's own was never given back
    EXPECT_EQ(thread->suspend(), 0xFFFFFFFF);
    delete thread; // by hand: nothing else can any more
}

enum : unsigned int { plain = 0x0400, nests, ends_inner, raises, ends };
std::vector<unsigned int> seen;
std::map<unsigned int, std::function<void()>> handlers;

std::intptr_t on_message(window_handle, unsigned int message, std::uintptr_t, std::intptr_t)
{
    seen.push_back(message);
    if (handlers.contains(message)) {
        handlers[message]();
    }
    return 0;
}

TEST(thread_obj_ex, serves_the_queue_until_the_thread_has_ended)
{
    time_limit const limit(20);
    window_handle const window = create_window(on_message, true);
    zel::event inner_may_end;
    zel::event inner_has_ended;
    zel::event outer_may_end;
    // On the stack: no thread holds them.
    task_of<zel::thread_obj_ex> inner([&] { return inner_may_end.lock(infinite) ? 0U : 1U; });
    task_of<zel::thread_obj_ex> outer([&] {
        inner_has_ended.lock(infinite);
        for (unsigned int const message : {plain, ends, plain}) {
            EXPECT_TRUE(post_message(window, message, 0, 0));
        }
        return outer_may_end.lock(infinite) ? 0U : 1U;
    });
    handlers[raises] = [] { throw std::runtime_error("from the procedure"); };
    handlers[nests] = [&] {
        post_message(window, ends_inner, 0, 0);
        inner.wait_msg_loop();
        inner_has_ended.set();
    };
    handlers[ends_inner] = [&] {
        inner_may_end.set();
        inner.wait();
    };
    handlers[ends] = [&] {
        outer_may_end.set();
        outer.wait();
    };
    EXPECT_THROW(outer.wait_msg_loop(), zel::kernel_obj::exception);
    inner.start();
    outer.start();
    EXPECT_EQ(outer.ref_count(), 0U);
    EXPECT_TRUE(post_message(window, raises, 0, 0));
    EXPECT_THROW(outer.wait_msg_loop(), std::runtime_error);
    EXPECT_TRUE(post_message(window, nests, 0, 0));
    EXPECT_TRUE(post_message(nullptr, plain, 0, 0)); // nobody's: taken and dropped
    post_quit_message(0); // is taken and ends nothing
    outer.wait_msg_loop();
    EXPECT_EQ(seen, (std::vector<unsigned int>{raises, nests, ends_inner, plain, ends}));
    outer.wait_msg_loop(); // has ended: at once, with a message left
    tagMSG left{};
    EXPECT_TRUE(peek_message(left, window, plain, plain, peek_remove));
    EXPECT_TRUE(destroy_window(window));
}

} // namespace
