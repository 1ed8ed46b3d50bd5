// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/asleep.h"
#include "tests/support/time_limit.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/threads/threads.h"
#include <atomic>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <thread>
#include <utility>

// Closes the handle in the end.
class object {
public:
    explicit object(void * handle)
        : handle_(handle)
    {
        EXPECT_NE(handle, nullptr) << zel::platform::last_error();
    }
    ~object() { EXPECT_TRUE(zel::platform::close_handle(handle_)); }
    object(object const &) = delete;
    object & operator=(object const &) = delete;
    operator void *() const { return handle_; }

    std::uint32_t wait(std::uint32_t milliseconds = zel::platform::infinite) const
    {
        return zel::platform::wait_for_single_object(handle_, milliseconds);
    }

private:
    void * handle_;
};

// A thread that has come to where it waits.
class sleeper {
public:
    explicit sleeper(std::function<void()> body)
        : thread_([this, body = std::move(body)] {
            id_ = static_cast<int>(zel::platform::current_thread_id());
            body();
        })
    {
        while (id_ == 0) {
            std::this_thread::yield();
        }
        until_asleep(id_);
    }
    ~sleeper()
    {
        if (thread_.joinable()) {
            thread_.join();
        }
    }
    std::thread & operator*() { return thread_; }

private:
    std::atomic<int> id_{0};
    std::thread thread_;
};
