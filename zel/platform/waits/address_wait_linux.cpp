// SPDX-License-Identifier: MIT
#include "zel/platform/waits/address_wait.h"

#include "zel/platform/waits/this_thread_linux.h"
#include <cerrno>
#include <climits>
#include <ctime>

#include <linux/futex.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

// long zel_interruptible_syscall(number, a, b, c, d, atomic<std::uint32_t> const * control)
//
// Makes the system call unless the low byte of *control is set, and returns what the kernel gives.
// A signal that arrives anywhere between the look at *control and the end of the call makes it end
// with -EINTR: its handler, leave_interruptible_wait, moves the thread from wherever it is between
// the two labels to the second. The fifth and the sixth argument of the call are what one of the
// two calls made this way wants, and the other ignores: CLOCK_MONOTONIC for futex_waitv, all ones
// (FUTEX_BITSET_MATCH_ANY) for futex.
extern "C" {
[[gnu::visibility("hidden")]] long zel_interruptible_syscall(long number, void const * a, long b,
                                                             long c, void const * d,
                                                             void const * control);
[[gnu::visibility("hidden")]] extern char const zel_interruptible_begin[];
[[gnu::visibility("hidden")]] extern char const zel_interruptible_end[];
}

asm(R"(
    .text
    .p2align 4
    .hidden zel_interruptible_syscall
    .hidden zel_interruptible_begin
    .hidden zel_interruptible_end
    .globl zel_interruptible_syscall
    .globl zel_interruptible_begin
    .globl zel_interruptible_end
    .type zel_interruptible_syscall, @function
zel_interruptible_syscall:
    .cfi_startproc
    movq %rdi, %rax
    movq %rsi, %rdi
    movq %rdx, %rsi
    movq %rcx, %rdx
    movq %r8, %r10
    movq %r9, %rcx
    movl $1, %r8d
    movl $-1, %r9d
zel_interruptible_begin:
    testb $0xFF, (%rcx)
    jnz 1f
    syscall
zel_interruptible_end:
    ret
1:  movq $-4, %rax
    ret
    .cfi_endproc
    .size zel_interruptible_syscall, . - zel_interruptible_syscall
)");

namespace zel::platform {
namespace {

static_assert(EINTR == 4 && CLOCK_MONOTONIC == 1); // as written above
static_assert(stop_mask == 0xFF);

constexpr std::int64_t nanoseconds_a_second = 1'000'000'000;

} // namespace

void leave_interruptible_wait(void * context) noexcept
{
    auto * const registers = static_cast<ucontext_t *>(context)->uc_mcontext.gregs;
    auto const place = static_cast<std::uintptr_t>(registers[REG_RIP]);
    if (place >= reinterpret_cast<std::uintptr_t>(zel_interruptible_begin)
        && place < reinterpret_cast<std::uintptr_t>(zel_interruptible_end)) {
        registers[REG_RIP] = reinterpret_cast<long long>(zel_interruptible_end);
        registers[REG_RAX] = -EINTR;
    }
}

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
    // futex(2): FUTEX_WAIT_BITSET takes a moment where FUTEX_WAIT takes a span, so that a signal
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
    // futex(2): FUTEX_WAKE_OP changes the second word and wakes those on the first before anybody
    // else gets at either; here both are the same. What is woken by the condition, if it holds, is
    // nobody any more.
    int const operation = FUTEX_WAKE_OP | (shared ? 0 : FUTEX_PRIVATE_FLAG);
    ::syscall(SYS_futex, &word, operation, INT_MAX, 0, &word,
              FUTEX_OP(FUTEX_OP_SET, static_cast<int>(value), FUTEX_OP_CMP_EQ, 0));
}

wake_reason wait_interruptibly(atomic<std::uint32_t> const & word, std::uint32_t expected,
                               std::int64_t until, bool shared) noexcept
{
    int const operation = FUTEX_WAIT_BITSET | (shared ? 0 : FUTEX_PRIVATE_FLAG);
    timespec const moment{until / nanoseconds_a_second, until % nanoseconds_a_second};
    long const result = zel_interruptible_syscall(
        SYS_futex, &word, operation, expected, until < 0 ? nullptr : &moment, this_thread.control);
    switch (result) {
    case 0:
        return wake_reason::woken;
    case -ETIMEDOUT:
        return wake_reason::late;
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
    long const result = zel_interruptible_syscall(
        SYS_futex_waitv, words, 2, 0, until < 0 ? nullptr : &moment, this_thread.control);
    return result != -ENOSYS && result != -EPERM; // EPERM: a filter for system calls
}

} // namespace zel::platform
