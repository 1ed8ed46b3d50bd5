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
    void store(T value, std::memory_order order = std::memory_order_seq_cst) noexcept
    {
        stretched::pause();
        base::store(value, order);
    }
    T exchange(T value, std::memory_order order = std::memory_order_seq_cst) noexcept
    {
        stretched::pause();
        return base::exchange(value, order);
    }
    template <class... Orders>
    bool compare_exchange_weak(T & expected, T value, Orders... orders) noexcept
    {
        stretched::pause();
        return base::compare_exchange_weak(expected, value, orders...);
    }
    template <class... Orders>
    bool compare_exchange_strong(T & expected, T value, Orders... orders) noexcept
    {
        stretched::pause();
        return base::compare_exchange_strong(expected, value, orders...);
    }
    T fetch_add(T value, std::memory_order order = std::memory_order_seq_cst) noexcept
    {
        stretched::pause();
        return base::fetch_add(value, order);
    }
    T fetch_sub(T value, std::memory_order order = std::memory_order_seq_cst) noexcept
    {
        stretched::pause();
        return base::fetch_sub(value, order);
    }
    T fetch_and(T value, std::memory_order order = std::memory_order_seq_cst) noexcept
    {
        stretched::pause();
        return base::fetch_and(value, order);
    }
    using base::operator=;
    operator T() const noexcept { return load(); }
};

inline void signal_fence() noexcept { std::atomic_signal_fence(std::memory_order_seq_cst); }

} // namespace zel
