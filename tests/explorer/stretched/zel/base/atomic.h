// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>

#include <sched.h>

/// Stands in front of zel/base/atomic.h when the library is compiled for stretched runs: real
/// threads, with a pause before some atomic steps, so that what others can do in between happens
/// often.
namespace zel {
namespace stretched {

inline constinit thread_local std::uint64_t drawn = 0;

/// Of 4,096 steps about 128 give the processor away, 256 spin, and one sleeps for a millisecond. A
/// signal's handler may come here too.
inline void pause() noexcept
{
    if (drawn == 0) {
        drawn = reinterpret_cast<std::uintptr_t>(&drawn) ^ 0x9E3779B97F4A7C15;
    }
    drawn = drawn * 6364136223846793005 + 1442695040888963407;
    std::uint64_t const number = drawn >> 40;
    if (number % 4096 == 0) {
        int const saved = errno;
        timespec const millisecond{0, 1'000'000};
        ::nanosleep(&millisecond, nullptr);
        errno = saved;
    } else if (number % 32 == 1) {
        ::sched_yield();
    } else if (number % 16 == 2) {
        for (std::uint64_t spins = number >> 8; spins != 0; spins /= 2) {
            for (int i = 0; i < 64; ++i) {
                std::atomic_signal_fence(std::memory_order_seq_cst);
            }
        }
    }
}

} // namespace stretched

template <class T> class atomic : public std::atomic<T> {
    using base = std::atomic<T>;

public:
    using base::base;
    constexpr atomic() noexcept = default;

    T load(std::memory_order order = std::memory_order_seq_cst) const noexcept
    {
        stretched::pause();
        return base::load(order);
    }
// The steps that begin with an expected value, and the others.
#define ZEL_STRETCHED(step, parameters, ...)                                                       \
    template <class... Orders> auto step parameters noexcept                                       \
    {                                                                                              \
        stretched::pause();                                                                        \
        return base::step(__VA_ARGS__, orders...);                                                 \
    }
    ZEL_STRETCHED(compare_exchange_weak, (T & before, T value, Orders... orders), before, value)
    ZEL_STRETCHED(compare_exchange_strong, (T & before, T value, Orders... orders), before, value)
    ZEL_STRETCHED(store, (T value, Orders... orders), value)
    ZEL_STRETCHED(exchange, (T value, Orders... orders), value)
    ZEL_STRETCHED(fetch_add, (T value, Orders... orders), value)
    ZEL_STRETCHED(fetch_sub, (T value, Orders... orders), value)
    ZEL_STRETCHED(fetch_and, (T value, Orders... orders), value)
#undef ZEL_STRETCHED
    using base::operator=;
    operator T() const noexcept { return load(); }
};

inline void signal_fence() noexcept { std::atomic_signal_fence(std::memory_order_seq_cst); }

} // namespace zel
