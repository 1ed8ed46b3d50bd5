// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/time_limit.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/threads/threads.h"
#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>

// A name that no other test uses.
inline std::string fresh_name()
{
    static std::atomic<int> count{0};
    return "zel test/" + std::to_string(::getpid()) + "\\" + std::to_string(++count);
}

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

// Returns when the thread or the process of that number has slept for a while, so that it has come
// to where it waits, however busy the machine is.
inline void until_asleep(int number)
{
    std::string const path = "/proc/" + std::to_string(number) + "/stat"; // threads too
    for (int seen = 0; seen < 5;) {
        std::string line;
        std::getline(std::ifstream(path), line);
        // The state stands behind the name, which may hold anything.
        std::size_t const end = line.rfind(')');
        seen = end != std::string::npos && line.compare(end, 3, ") S") == 0 ? seen + 1 : 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

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
