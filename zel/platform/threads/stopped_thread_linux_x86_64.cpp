// SPDX-License-Identifier: MIT
#include "zel/platform/threads/stopped_thread_linux.h"

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <iterator>

#include <ucontext.h>

// A function returns here instead of to its caller. This code saves the function's result, asks
// zel_caught_return for the address at which to continue, and continues there. No other register
// has to survive a call.
//
// For the unwinder this is a frame of size 0, whose return address is where that of the function
// was. The unwinder searches its description for the byte before an address, hence the `nop`. An
// exception that passes first calls zel_pass_return_trap, which restores the true address.
asm(R"(
    .text
    .p2align 4
    .hidden zel_return_trap
    .hidden zel_caught_return
    .globl zel_return_trap
    .type zel_return_trap, @function
    .hidden zel_pass_return_trap
    .cfi_startproc
    .cfi_personality 0x1b, zel_pass_return_trap
    .cfi_def_cfa_offset 0
    nop
zel_return_trap:
    subq $8, %rsp
    .cfi_def_cfa_offset 8
    pushq %rbp
    .cfi_def_cfa_offset 16
    .cfi_offset %rbp, -16
    movq %rsp, %rbp
    .cfi_def_cfa_register %rbp
    pushq %rax
    pushq %rdx
    subq $32, %rsp
    movups %xmm0, (%rsp)
    movups %xmm1, 16(%rsp)
    leaq 8(%rbp), %rdi
    andq $-16, %rsp
    call *zel_caught_return(%rip)
    movq %rax, 8(%rbp)
    movups -48(%rbp), %xmm0
    movups -32(%rbp), %xmm1
    movq -16(%rbp), %rdx
    movq -8(%rbp), %rax
    movq %rbp, %rsp
    popq %rbp
    .cfi_def_cfa %rsp, 8
    ret
    .cfi_endproc
    .size zel_return_trap, . - zel_return_trap
)");

namespace zel::platform {
namespace {

constexpr unsigned char system_call[] = {0x0F, 0x05};

bool is_system_call(std::uintptr_t address)
{
    return std::memcmp(reinterpret_cast<void const *>(address), system_call, sizeof system_call)
        == 0;
}

// The length of a `call` instruction with a register or memory operand, from its ModRM byte,
// without prefixes; 0 when the byte belongs to another instruction.
int length_of_indirect_call(unsigned char mod_rm)
{
    if ((mod_rm >> 3 & 7) != 2) {
        return 0;
    }
    int const mode = mod_rm >> 6;
    int const base = mod_rm & 7;
    if (mode == 3) {
        return 2;
    }
    int const displacement = mode == 1 ? 1 : mode == 2 || base == 5 ? 4 : 0;
    return 2 + (base == 4 ? 1 : 0) + displacement;
}

} // namespace

stopped_thread stopped_thread_of(void const * context, bool (*can_be_read)(std::uintptr_t)) noexcept
{
    auto const & registers = static_cast<ucontext_t const *>(context)->uc_mcontext.gregs;
    auto const value = [&](int index) { return static_cast<std::uint64_t>(registers[index]); };
    stopped_thread result{value(REG_RIP), value(REG_RSP), stopped_thread::in_no_call, 0, {0, 0, 0}};
    if (!can_be_read(result.place)) {
        return result;
    }
    if (is_system_call(result.place - sizeof system_call)) {
        if (registers[REG_RAX] == -EINTR) {
            result.sleep = stopped_thread::call_given_up;
        }
    } else if (is_system_call(result.place)
               && value(REG_RCX) == result.place + sizeof system_call) {
        // The instruction stores the address behind it in RCX. RCX has that value, so the call was
        // made and the kernel has set the thread back to it. Otherwise the call has not been made
        // yet.
        result.sleep = stopped_thread::call_to_be_repeated;
        result.call = value(REG_RAX);
        result.arguments[0] = value(REG_RDI);
        result.arguments[1] = value(REG_RSI);
        result.arguments[2] = value(REG_RDX);
    }
    return result;
}

bool is_behind_call(unsigned char const (&code_before)[longest_call]) noexcept
{
    constexpr unsigned char direct = 0xE8; // and four bytes
    constexpr unsigned char indirect = 0xFF;
    auto const * const end = std::end(code_before);
    if (end[-5] == direct) {
        return true;
    }
    for (int const length : {2, 3, 4, 6, 7}) {
        if (end[-length] == indirect && length_of_indirect_call(end[1 - length]) == length) {
            return true;
        }
    }
    return false;
}

std::uintptr_t without_signature(std::uintptr_t return_address) noexcept { return return_address; }

std::uintptr_t * place_of_return(std::uintptr_t address, std::uintptr_t,
                                 std::uintptr_t end) noexcept
{
    auto * const place = reinterpret_cast<std::uintptr_t *>(end) - 1;
    return *place == address ? place : nullptr;
}

// A shadow stack would detect a changed return address. Without one the instruction does nothing.
bool has_shadow_stack() noexcept
{
    std::uintptr_t pointer = 0;
    asm volatile("rdsspq %0" : "+r"(pointer));
    return pointer != 0;
}

std::uintptr_t place_below_handler(std::uintptr_t const * frame, std::uintptr_t) noexcept
{
    // The kernel stores the saved context directly above the return address.
    auto const * const context = reinterpret_cast<ucontext_t const *>(frame + 1);
    return static_cast<std::uintptr_t>(context->uc_mcontext.gregs[REG_RIP]);
}

} // namespace zel::platform
