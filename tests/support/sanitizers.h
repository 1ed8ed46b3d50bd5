// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

/// Which sanitizer the tests are built with, by the flags that CMake compiles them with.
constexpr bool is_built_with(std::string_view flag)
{
    return std::string_view(ZEL_TEST_FLAGS).find(flag) != std::string_view::npos;
}
constexpr bool under_thread_sanitizer = is_built_with("sanitize=thread");
constexpr bool under_address_sanitizer = is_built_with("sanitize=address");

/// At the start of a test that suspends or terminates threads. The thread sanitizer puts signals
/// off until the victim next calls into its runtime, and takes a thread that ends by the bare
/// system call for one that runs on.
#define SKIP_IF_THREADS_CANNOT_BE_STOPPED()                                                        \
    if (under_thread_sanitizer) {                                                                  \
        GTEST_SKIP() << "the thread sanitizer cannot follow it";                                   \
    }
