// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Orders two texts, each in an array of `max_path` initialised bytes, byte by byte, with ASCII
/// capitals taken for small letters.
/// \returns below 0, 0 or above 0.
int path_compare(char const * first, char const * second) noexcept;

/// The same as a comparison that gives 0, and faster.
bool path_equal(char const * first, char const * second) noexcept;

} // namespace zel::platform
