// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace zel::platform {

/// Makes a function of the calling thread return to `on_return` instead of its caller. The result
/// of `on_return` is the address at which the thread continues. Its argument is the place, directly
/// below the caller's frame, from which the unwinder takes the return address.
/// \param frame         the place on the stack that contains the function's return address.
/// \param on_exception  restores that address. Called when an exception, or the end of the thread
///                      by the host's library, is about to leave the function.
/// \returns the replaced return address; 0, with nothing done, when the host checks return
///          addresses.
std::uintptr_t catch_return(std::uintptr_t * frame,
                            std::uintptr_t (*on_return)(std::uintptr_t *) noexcept,
                            void (*on_exception)() noexcept) noexcept;

/// True if the unwinder has reached such a replaced return address, from which it finds no further
/// frames.
bool is_caught_return(std::uintptr_t address) noexcept;

} // namespace zel::platform
