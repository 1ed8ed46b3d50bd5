// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/address_wait.h"
#include "zel/platform/handles.h"
#include "zel/platform/threads.h"
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <utility>

#include <unistd.h>

#if defined(__has_feature)
#define HAS_FEATURE(name) __has_feature(name)
#else
#define HAS_FEATURE(name) 0
#endif

namespace thread_tests {

using namespace zel::platform;

// The thread sanitizer puts signals off until the victim next calls into its runtime, takes a
// thread that ends by the bare system call for one that runs on, and ends a forked child that
// starts threads.
#if defined(__SANITIZE_THREAD__) || HAS_FEATURE(thread_sanitizer)
constexpr bool is_followed_everywhere = false;
#else
constexpr bool is_followed_everywhere = true;
#endif

// Ends the program when a test takes longer: a thread that is lost cannot be waited for.
class thread_test : public testing::Test {
protected:
    thread_test() { ::alarm(100); }
    ~thread_test() override { ::alarm(0); }
};

class stopping_test : public thread_test {
protected:
    void SetUp() override
    {
        if (!is_followed_everywhere) {
            GTEST_SKIP() << "the sanitizer cannot follow it";
        }
    }
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

} // namespace thread_tests
