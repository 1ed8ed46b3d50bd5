// SPDX-License-Identifier: MIT
// Copy a pointer to a shared object and release the copy.
#include "zel/core/auto_ptr.h"

#include <benchmark/benchmark.h>
#include <boost/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <memory>
#include <thread>

namespace {

struct zel_object : zel::ref_obj {
    int value = 0;
};
struct boost_object : boost::intrusive_ref_counter<boost_object, boost::thread_safe_counter> {
    virtual ~boost_object() = default;
    int value = 0;
};
struct std_object {
    virtual ~std_object() = default;
    int value = 0;
};

template <typename Pointer> void copy_and_release(benchmark::State & state, Pointer const & held)
{
    // std::shared_ptr counts without atomic steps as long as the process has had one thread only.
    std::thread([] {}).join();
    for (auto _ : state) {
        Pointer copy(held);
        benchmark::DoNotOptimize(copy);
    }
}

void with_zel(benchmark::State & state)
{
    copy_and_release(state, zel::auto_ptr<zel_object>(new zel_object));
}
void with_boost(benchmark::State & state)
{
    copy_and_release(state, boost::intrusive_ptr<boost_object>(new boost_object));
}
void with_std(benchmark::State & state) { copy_and_release(state, std::make_shared<std_object>()); }

BENCHMARK(with_zel)->Name("auto_ptr/zel");
BENCHMARK(with_boost)->Name("auto_ptr/boost::intrusive_ptr");
BENCHMARK(with_std)->Name("auto_ptr/std::shared_ptr");

} // namespace
