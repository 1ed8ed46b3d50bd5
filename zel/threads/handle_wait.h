// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace zel {

/// \throws kernel_obj::exception  `invalid_handle` when `handle` is null.
void require_handle(void * handle);

/// Waits for the object behind `handle`.
/// \returns false when the time was over, and when a mutex was handed over whose owner had died.
bool wait_for_handle(void * handle, std::uint32_t timeout) noexcept;

} // namespace zel
