// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Bytes of a path's array, the terminator among them.
inline constexpr unsigned int max_path = 260;

} // namespace zel::platform
