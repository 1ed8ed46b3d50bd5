// SPDX-License-Identifier: MIT
#pragma once

// Which sanitizer the tests are built with; GCC and Clang tell it in different ways.
#if defined(__has_feature)
#define ZEL_HAS_FEATURE(name) __has_feature(name)
#else
#define ZEL_HAS_FEATURE(name) 0
#endif

#if defined(__SANITIZE_THREAD__) || ZEL_HAS_FEATURE(thread_sanitizer)
constexpr bool under_thread_sanitizer = true;
#else
constexpr bool under_thread_sanitizer = false;
#endif

#if defined(__SANITIZE_ADDRESS__) || ZEL_HAS_FEATURE(address_sanitizer)
constexpr bool under_address_sanitizer = true;
#else
constexpr bool under_address_sanitizer = false;
#endif

#undef ZEL_HAS_FEATURE

/// At the start of a test that suspends or terminates threads. The thread sanitizer puts signals
/// off until the victim next calls into its runtime, and takes a thread that ends by the bare
/// system call for one that runs on.
#define SKIP_IF_THREADS_CANNOT_BE_STOPPED()                                                        \
    if (under_thread_sanitizer) {                                                                  \
        GTEST_SKIP() << "the thread sanitizer cannot follow it";                                   \
    }
