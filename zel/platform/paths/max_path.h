// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Size of a path's array in bytes, including the terminator.
inline constexpr unsigned int max_path = 260;

} // namespace zel::platform
