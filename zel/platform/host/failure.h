// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/last_error.h"
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// What the layer does with the last error beyond what users may call: the host's own codes and
/// words, and ways to report a failure in one statement.
namespace zel::platform {

/// Sets the last error together with the words that the host gave for it, which `error_text` then
/// returns in the place of the documented ones; cut to 511 bytes. Allocates nothing.
void set_last_error(std::uint32_t code, std::string_view reason) noexcept;

/// The code of this layer that stands for a host's `errno` value.
std::uint32_t error_from_errno(int host_error) noexcept;

/// The documented text of `code` with its line end, or the host's reason when one was stored with
/// the calling thread's last error and `code` is that error. Empty for an unknown code. Valid until
/// the thread's last error changes.
std::string_view error_text(std::uint32_t code) noexcept;

/// \name Each sets the last error and returns what the function that fails has to return
/// @{

/// \returns false.
inline bool fail(std::uint32_t code) noexcept
{
    set_last_error(code);
    return false;
}

/// \returns null, for a function that returns a pointer.
inline std::nullptr_t fail_with_null(std::uint32_t code) noexcept
{
    set_last_error(code);
    return nullptr;
}

/// Takes the reason from `errno`, as a call of the host left it.
/// \returns false.
inline bool fail_with_errno() noexcept { return fail(error_from_errno(errno)); }

/// \returns whether a call of the host gave 0, with the last error set when it did not.
inline bool succeeded(int result) noexcept { return result == 0 || fail_with_errno(); }
/// @}

} // namespace zel::platform
