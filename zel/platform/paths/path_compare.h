// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Orders two texts byte by byte; ASCII capitals count as small letters. Each is in an array of
/// `max_path` initialised bytes.
/// \returns below 0, 0 or above 0.
int path_compare(char const * first, char const * second) noexcept;

/// True if `path_compare` would return 0; faster.
bool path_equal(char const * first, char const * second) noexcept;

} // namespace zel::platform
