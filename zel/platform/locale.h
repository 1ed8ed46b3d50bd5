// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Whether the calling thread's locale writes a number's decimal point as ".". It reads one
/// pointer; no lock, no system call.
bool decimal_point_is_period() noexcept;

} // namespace zel::platform
