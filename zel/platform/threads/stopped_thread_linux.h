// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

/// Facts about a thread that a signal has interrupted, from the processor's registers and its
/// calling convention.
namespace zel::platform {

struct stopped_thread {
    std::uintptr_t place; // the next instruction
    std::uintptr_t stack; // the stack pointer

    /// Tells whether the signal interrupted a system call in which the thread slept.
    enum : std::uint32_t {
        in_no_call, // or about to make one
        call_given_up, // the call returns EINTR when the thread continues
        call_to_be_repeated,
    } sleep;

    /// The number of the call to be repeated, and its arguments; otherwise 0.
    std::uint64_t call;
    std::uint64_t arguments[3];

    bool operator==(stopped_thread const &) const = default;
};

/// \param context      a signal handler's third argument.
/// \param can_be_read  tells whether the code around an address is readable.
stopped_thread stopped_thread_of(void const * context,
                                 bool (*can_be_read)(std::uintptr_t)) noexcept;

/// True if a call instruction ends directly before an address: only such words on a stack are
/// return addresses.
constexpr std::size_t longest_call = 8; // 7 bytes, and one more
bool is_behind_call(unsigned char const (&code_before)[longest_call]) noexcept;

/// A return address from the stack, without the signature that some processors add.
std::uintptr_t without_signature(std::uintptr_t return_address) noexcept;

/// \param begin,end  the frame of a function that has called no other function, or of the function
///                   whose frame ends at `begin`.
/// \returns the place in that frame from which the function takes its return address; null when it
///          is unknown or when the address is signed.
std::uintptr_t * place_of_return(std::uintptr_t address, std::uintptr_t begin,
                                 std::uintptr_t end) noexcept;

/// The instruction at which a signal handler has interrupted its thread.
/// \param frame  the place on the stack that contains the handler's return address.
/// \param end    an address above the signal's frame.
/// \returns 0 when it is unknown.
std::uintptr_t place_below_handler(std::uintptr_t const * frame, std::uintptr_t end) noexcept;

/// Whether the processor checks that functions return to where they were called from.
bool has_shadow_stack() noexcept;

} // namespace zel::platform
