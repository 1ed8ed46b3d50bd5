// SPDX-License-Identifier: MIT
#pragma once

#include <latch>
#include <thread>
#include <vector>

/// Calls `body(i)` on `count` threads, i from 0, which wait for each other before they begin.
template <typename Body> void run_at_once(int count, Body const & body)
{
    std::latch start(count);
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            body(i);
        });
    }
    for (auto & thread : threads) {
        thread.join();
    }
}
