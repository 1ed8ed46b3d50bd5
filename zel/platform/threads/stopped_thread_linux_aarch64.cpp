// SPDX-License-Identifier: MIT
#include "zel/platform/threads/stopped_thread_linux.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include <asm/sigcontext.h>
#include <ucontext.h>

// A function returns here instead of to its caller. This code saves the function's result, asks
// zel_caught_return for the address at which to continue, and continues there. No other register
// has to survive a call.
//
// For the unwinder this is a frame of size 0, whose return address (X30) is where that of the
// function was. The unwinder searches its description for the byte before an address, hence the
// `nop`. An exception that passes first calls zel_pass_return_trap, which restores the true
// address.
asm(R"(
    .text
    .p2align 4
    .hidden zel_return_trap
    .hidden zel_caught_return
    .globl zel_return_trap
    .type zel_return_trap, %function
    .hidden zel_pass_return_trap
    .cfi_startproc
    .cfi_personality 0x1b, zel_pass_return_trap
    nop
zel_return_trap:
    sub sp, sp, #96
    .cfi_def_cfa_offset 96
    stp x29, x30, [sp, #80]
    .cfi_offset x29, -16
    .cfi_offset x30, -8
    add x29, sp, #80
    stp x0, x1, [sp]
    stp q0, q1, [sp, #16]
    stp q2, q3, [sp, #48]
    add x0, sp, #88
    adrp x16, zel_caught_return
    ldr x16, [x16, :lo12:zel_caught_return]
    blr x16
    str x0, [sp, #88]
    ldp q2, q3, [sp, #48]
    ldp q0, q1, [sp, #16]
    ldp x0, x1, [sp]
    ldp x29, x30, [sp, #80]
    add sp, sp, #96
    .cfi_def_cfa_offset 0
    .cfi_restore x29
    .cfi_restore x30
    ret
    .cfi_endproc
    .size zel_return_trap, . - zel_return_trap
)");

namespace zel::platform {
namespace {

using instruction = std::uint32_t;
constexpr instruction system_call = 0xD4000001; // svc #0

bool is_system_call(std::uintptr_t address)
{
    return std::memcmp(reinterpret_cast<void const *>(address), &system_call, sizeof system_call)
        == 0;
}

} // namespace

stopped_thread stopped_thread_of(void const * context, bool (*can_be_read)(std::uintptr_t)) noexcept
{
    mcontext_t const & registers = static_cast<ucontext_t const *>(context)->uc_mcontext;
    auto const & x = registers.regs;
    stopped_thread result{registers.pc, registers.sp, stopped_thread::in_no_call, 0, {0, 0, 0}};
    if (!can_be_read(result.place)) {
        return result;
    }
    if (is_system_call(result.place - sizeof system_call)) {
        if (x[0] == static_cast<std::uint64_t>(-EINTR)) {
            result.sleep = stopped_thread::call_given_up;
        }
    } else if (is_system_call(result.place)) {
        // The kernel has set the thread back to the call. A thread that has not made it yet looks the
        // same: it counts as asleep once, and is past the call the next time.
        result.sleep = stopped_thread::call_to_be_repeated;
        result.call = x[8];
        std::copy_n(x, 3, result.arguments);
    }
    return result;
}

bool is_behind_call(unsigned char const (&code_before)[longest_call]) noexcept
{
    instruction last = 0;
    std::memcpy(&last, code_before + longest_call - sizeof last, sizeof last);
    constexpr instruction to_a_place = 0x94000000; // bl
    constexpr instruction to_a_register = 0xD63F0000; // blr, and those that check a signature
    return (last & 0xFC000000) == to_a_place || (last & 0xFEFFF000) == to_a_register;
}

std::uintptr_t without_signature(std::uintptr_t return_address) noexcept
{
    register std::uintptr_t address asm("x30") = return_address;
    asm("hint #7" : "+r"(address)); // xpaclri; nothing on a processor that does not sign
    return address;
}

std::uintptr_t * place_of_return(std::uintptr_t address, std::uintptr_t begin,
                                 std::uintptr_t end) noexcept
{
    // Anywhere in the frame, behind the caller's frame pointer; what is signed is not found.
    auto * const last = reinterpret_cast<std::uintptr_t *>(end);
    auto * word = reinterpret_cast<std::uintptr_t *>(begin) + 1;
    std::uintptr_t * found = nullptr;
    for (; word < last; ++word) {
        if (*word == address && word[-1] >= end) {
            if (found != nullptr) {
                return nullptr; // one of them is left over, and nothing tells which
            }
            found = word;
        }
    }
    return found;
}

// A guarded stack of return addresses would notice another one. The instruction clears the bit of
// what is on, and does nothing on a processor that does not know it.
bool has_shadow_stack() noexcept
{
    register std::uint64_t asked asm("x16") = 1;
    asm volatile("hint #40" : "+r"(asked)); // chkfeat x16
    return asked == 0;
}

std::uintptr_t place_below_handler(std::uintptr_t const * frame, std::uintptr_t end) noexcept
{
    // The kernel puts the saved context and, above it, a frame record of the thread's X29 and X30
    // onto the stack; the handler's own record leads there. The size of what lies between them
    // depends on the processor's registers, so the context is looked for from below: it begins its
    // list of further registers with those of NEON.
    std::uintptr_t const record = frame[-1];
    if (record <= reinterpret_cast<std::uintptr_t>(frame) || record + 16 > end || record % 8 != 0) {
        return 0;
    }
    auto const * const saved = reinterpret_cast<std::uintptr_t const *>(record);
    constexpr std::uint64_t neon_list = std::uint64_t{sizeof(fpsimd_context)} << 32 | FPSIMD_MAGIC;
    constexpr std::size_t further = offsetof(mcontext_t, __reserved);
    for (auto at = (reinterpret_cast<std::uintptr_t>(frame) | 15) + 1;
         at + sizeof(mcontext_t) <= record; at += 16) {
        auto const & registers = *reinterpret_cast<mcontext_t const *>(at);
        std::uint64_t list = 0;
        std::memcpy(&list, reinterpret_cast<void const *>(at + further), sizeof list);
        if (list == neon_list && registers.regs[29] == saved[0] && registers.regs[30] == saved[1]) {
            return registers.pc;
        }
    }
    return 0;
}

} // namespace zel::platform
