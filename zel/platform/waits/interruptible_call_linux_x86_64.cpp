// SPDX-License-Identifier: MIT
#include "zel/platform/waits/interruptible_call_linux.h"

#include "zel/platform/waits/this_thread_linux.h"
#include <cerrno>
#include <cstdint>
#include <ctime>

#include <ucontext.h>

extern "C" {
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

static_assert(EINTR == 4 && CLOCK_MONOTONIC == 1); // as written above
static_assert(stop_mask == 0xFF);

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

} // namespace zel::platform
