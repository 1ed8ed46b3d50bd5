// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/kernel_objects.h"
#include <cstdint>

namespace zel {

[[noreturn]] void refuse_null_handle();

/// \throws kernel_obj::exception  `invalid_handle` when `handle` is null.
inline void require_handle(void * handle)
{
    if (handle == nullptr) [[unlikely]] {
        refuse_null_handle();
    }
}

/// Waits for the object behind `handle`.
/// \returns false when the wait timed out, and when it gave the caller an abandoned mutex. True
///          also when the wait failed.
inline bool wait_for_handle(void * handle, std::uint32_t timeout) noexcept
{
    std::uint32_t const result = platform::wait_for_single_object(handle, timeout);
    return result != platform::wait_abandoned && result != platform::wait_timeout;
}

} // namespace zel
