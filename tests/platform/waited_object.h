// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/asleep.h"
#include "tests/support/time_limit.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include <cstdint>
#include <gtest/gtest.h>

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
