// SPDX-License-Identifier: MIT
#include "zel/threads/thread_obj.h"

#include <atomic>
#include <benchmark/benchmark.h>
#include <thread>

namespace {

std::atomic<int> runs{0};

class counting : public zel::thread_obj {
public:
    using thread_obj::thread_obj;

protected:
    unsigned int run() override
    {
        runs.fetch_add(1);
        return 0;
    }
};

void start_and_wait_zel(benchmark::State & state)
{
    for (auto _ : state) {
        zel::auto_ptr<zel::thread_obj> thread(new counting(nullptr, "counting"));
        thread->start();
        thread->wait();
    }
}
BENCHMARK(start_and_wait_zel)->Name("start_and_wait/zel")->UseRealTime();

void start_and_wait_std(benchmark::State & state)
{
    for (auto _ : state) {
        std::thread thread([] { runs.fetch_add(1); });
        thread.join();
    }
}
BENCHMARK(start_and_wait_std)->Name("start_and_wait/std")->UseRealTime();

} // namespace
