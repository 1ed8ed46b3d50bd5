// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/last_error.h"
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string_view>

/// Internal operations on the last error, in addition to those of last_error.h: translating the
/// host's error codes, keeping the host's own message, and reporting a failure in one statement.
namespace zel::platform {

/// Sets the last error together with the host's message for it, cut to 511 bytes. `error_text` then
/// returns that message in place of the documented one. Allocates nothing.
void set_last_error(std::uint32_t code, std::string_view reason) noexcept;

/// Translates an `errno` value to a code of this layer.
std::uint32_t error_from_errno(int host_error) noexcept;

/// The documented text of `code` with its line end. If `code` is the calling thread's last error
/// and was set with a message of the host, that message instead. Empty for an unknown code. Valid
/// until the thread's last error changes.
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

/// Sets the last error from `errno`, as a call of the host left it.
/// \returns false.
inline bool fail_with_errno() noexcept { return fail(error_from_errno(errno)); }

/// \returns true if `result`, from a call of the host, is 0; otherwise sets the last error from
///          `errno`.
inline bool succeeded(int result) noexcept { return result == 0 || fail_with_errno(); }
/// @}

} // namespace zel::platform
