// SPDX-License-Identifier: MIT
// For stretched runs: real threads, with a pause before some atomic steps, so that what others can
// do in between happens often.
#include "zel/base/atomic.h"
#include <cerrno>
#include <cstdint>
#include <ctime>

#include <sched.h>

namespace zel {

// Of 4,096 steps about 128 give the processor away, 256 spin, and one sleeps for a millisecond. A
// signal's handler may come here too.
void before_step(char const *, void const *, std::size_t, char const *, int) noexcept
{
    static constinit thread_local std::uint64_t drawn = 0;
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
                signal_fence();
            }
        }
    }
}

} // namespace zel
