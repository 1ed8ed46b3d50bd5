// SPDX-License-Identifier: MIT
#include "zel/platform/waits/address_wait.h"

#include "zel/platform/waits/interruptible_call_linux.h"
#include "zel/platform/waits/this_thread_linux.h"
#include <cerrno>
#include <climits>
#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zel::platform {
namespace {

constexpr std::int64_t nanoseconds_a_second = 1'000'000'000;

} // namespace

std::int64_t monotonic_now() noexcept
{
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * nanoseconds_a_second + now.tv_nsec;
}

std::int64_t moment_after(std::uint32_t milliseconds) noexcept
{
    return milliseconds == 0xFFFFFFFF ? -1
                                      : monotonic_now() + milliseconds * std::int64_t{1'000'000};
}

bool wait_on_address(atomic<std::uint32_t> const & word, std::uint32_t expected, std::int64_t until,
                     bool shared) noexcept
{
    // futex(2): FUTEX_WAIT_BITSET takes a deadline where FUTEX_WAIT takes a duration, so a signal
    // in the middle does not make the wait longer.
    int const operation = FUTEX_WAIT_BITSET | (shared ? 0 : FUTEX_PRIVATE_FLAG);
    timespec const moment{until / nanoseconds_a_second, until % nanoseconds_a_second};
    long const result = ::syscall(SYS_futex, &word, operation, expected,
                                  until < 0 ? nullptr : &moment, nullptr, FUTEX_BITSET_MATCH_ANY);
    return result == 0 || errno != ETIMEDOUT;
}

int wake_address(atomic<std::uint32_t> const & word, int count, bool shared) noexcept
{
    int const operation = FUTEX_WAKE | (shared ? 0 : FUTEX_PRIVATE_FLAG);
    long const woken = ::syscall(SYS_futex, &word, operation, count, nullptr, nullptr, 0);
    return woken < 0 ? 0 : static_cast<int>(woken);
}

void store_and_wake_all(atomic<std::uint32_t> & word, std::uint32_t value, bool shared) noexcept
{
    // futex(2): FUTEX_WAKE_OP changes the second word and wakes the sleepers of the first in one
    // step. Here both words are the same. If its condition holds, it also wakes the sleepers of the
    // second word, but there are none left.
    int const operation = FUTEX_WAKE_OP | (shared ? 0 : FUTEX_PRIVATE_FLAG);
    ::syscall(SYS_futex, &word, operation, INT_MAX, 0, &word,
              FUTEX_OP(FUTEX_OP_SET, static_cast<int>(value), FUTEX_OP_CMP_EQ, 0));
}

wake_reason wait_interruptibly(atomic<std::uint32_t> const & word, std::uint32_t expected,
                               std::int64_t until, bool shared) noexcept
{
    int const operation = FUTEX_WAIT_BITSET | (shared ? 0 : FUTEX_PRIVATE_FLAG);
    timespec const moment{until / nanoseconds_a_second, until % nanoseconds_a_second};
    std::int64_t const result = zel_interruptible_syscall(
        SYS_futex, &word, operation, expected, until < 0 ? nullptr : &moment, this_thread.control);
    switch (result) {
    case 0:
        return wake_reason::woken;
    case -ETIMEDOUT:
        return wake_reason::timed_out;
    case -EINTR:
        return wake_reason::interrupted;
    default: // -EAGAIN
        return wake_reason::changed;
    }
}

bool wait_for_either_interruptibly(atomic<std::uint32_t> const & first,
                                   std::uint32_t first_expected, bool first_is_shared,
                                   atomic<std::uint32_t> const & second,
                                   std::uint32_t second_expected, std::int64_t until) noexcept
{
    constexpr std::uint32_t flags = FUTEX_32 | FUTEX_PRIVATE_FLAG;
    futex_waitv const words[] = {
        {first_expected, reinterpret_cast<std::uintptr_t>(&first),
         first_is_shared ? std::uint32_t{FUTEX_32} : flags, 0},
        {second_expected, reinterpret_cast<std::uintptr_t>(&second), flags, 0},
    };
    timespec const moment{until / nanoseconds_a_second, until % nanoseconds_a_second};
    std::int64_t const result = zel_interruptible_syscall(
        SYS_futex_waitv, words, 2, 0, until < 0 ? nullptr : &moment, this_thread.control);
    return result != -ENOSYS && result != -EPERM; // EPERM: from a system call filter
}

} // namespace zel::platform
