// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <thread>
#include <vector>

/// Calls `body(i)` on `count` threads, i from 0, which wait for each other before they begin.
template <typename Body> void run_at_once(int count, Body const & body)
{
    std::atomic<int> waiting{count};
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            for (--waiting; waiting != 0;) {
                std::this_thread::yield();
            }
            body(i);
        });
    }
    for (auto & thread : threads) {
        thread.join();
    }
}
