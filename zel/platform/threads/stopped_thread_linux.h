// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

/// What only the processor's registers and its calling convention tell of a thread that a signal
/// has interrupted.
namespace zel::platform {

struct stopped_thread {
    std::uintptr_t place; // the next instruction
    std::uintptr_t stack; // the stack pointer

    /// Whether the signal came while the thread slept in a system call.
    enum : std::uint32_t {
        in_no_call, // also when it is about to make one
        call_given_up, // the call returns EINTR when the thread goes on
        call_to_be_repeated,
    } sleep;

    /// The call that is to be repeated, by number, and its arguments; otherwise 0.
    std::uint64_t call;
    std::uint64_t arguments[3];

    bool operator==(stopped_thread const &) const = default;
};

/// \param context      a signal handler's third argument.
/// \param can_be_read  whether the code around an address may be looked at.
stopped_thread stopped_thread_of(void const * context,
                                 bool (*can_be_read)(std::uintptr_t)) noexcept;

/// Whether a call instruction ends in front of an address: only such words on a stack are return
/// addresses.
constexpr std::size_t longest_call = 8; // bytes, and one more
bool is_behind_call(unsigned char const (&code_before)[longest_call]) noexcept;

/// A return address as it stands on the stack, without what the processor signs it with.
std::uintptr_t without_signature(std::uintptr_t return_address) noexcept;

/// \param begin,end  the frame of a function that has called no other, or the one whose frame ends
///                   at `begin`.
/// \returns the place in there from which it takes its return address; null when it is not told, or
///          when the address is signed.
std::uintptr_t * place_of_return(std::uintptr_t address, std::uintptr_t begin,
                                 std::uintptr_t end) noexcept;

/// Where a signal handler has interrupted its thread.
/// \param frame  the place on the stack that holds the handler's return address.
/// \param end    an address above the signal's frame.
/// \returns 0 when that cannot be told.
std::uintptr_t place_below_handler(std::uintptr_t const * frame, std::uintptr_t end) noexcept;

/// Has the calling thread come to `on_return` when a function returns, instead of going on behind its
/// call; `on_return` tells where to go on, and gets the place, right below the caller's frame, that
/// the unwinder takes the return address from.
/// \param frame         the place on the stack that holds the function's return address.
/// \param on_exception  puts that address back; called when an exception, or the end of the thread by
///                      the host's library, is about to leave the function instead.
/// \returns the return address that was there; 0, with nothing done, when the host checks returns.
std::uintptr_t catch_return(std::uintptr_t * frame,
                            std::uintptr_t (*on_return)(std::uintptr_t *) noexcept,
                            void (*on_exception)() noexcept) noexcept;

/// Whether the unwinder has come to a return that is caught, from where it finds no way further.
bool is_caught_return(std::uintptr_t address) noexcept;

} // namespace zel::platform
