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
    .type zel_interruptible_syscall, %function
zel_interruptible_syscall:
    .cfi_startproc
    hint #34 // bti c
    mov x8, x0
    mov x0, x1
    mov x1, x2
    mov x2, x3
    mov x3, x4
    mov x6, x5
    mov x4, #1
    mov w5, #-1
zel_interruptible_begin:
    ldrb w7, [x6]
    cbnz w7, 1f
    svc #0
zel_interruptible_end:
    ret
1:  mov x0, #-4
    ret
    .cfi_endproc
    .size zel_interruptible_syscall, . - zel_interruptible_syscall
)");

namespace zel::platform {

static_assert(EINTR == 4 && CLOCK_MONOTONIC == 1); // as written above
static_assert(stop_mask == 0xFF);

void leave_interruptible_wait(void * context) noexcept
{
    mcontext_t & registers = static_cast<ucontext_t *>(context)->uc_mcontext;
    if (registers.pc >= reinterpret_cast<std::uintptr_t>(zel_interruptible_begin)
        && registers.pc < reinterpret_cast<std::uintptr_t>(zel_interruptible_end)) {
        registers.pc = reinterpret_cast<std::uintptr_t>(zel_interruptible_end);
        registers.regs[0] = static_cast<std::uint64_t>(-EINTR);
    }
}

} // namespace zel::platform
