// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/last_error.h"
#include <cerrno>
#include <cstddef>
#include <cstdint>

/// Ways to report a failure in one statement: each sets the calling thread's last error and returns
/// what the function that fails has to return.
namespace zel::platform {

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

} // namespace zel::platform
