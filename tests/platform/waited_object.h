// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include <chrono>
#include <cstdint>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include <unistd.h>

// Ends the program when a test takes longer: a waiter that is lost cannot be waited for.
class limit {
public:
    explicit limit(unsigned seconds) { ::alarm(seconds); }
    ~limit() { ::alarm(0); }
};

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

/// Returns when the thread or the process of that number has slept for a while, so that it has
/// come to where it waits, however busy the machine is.
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
