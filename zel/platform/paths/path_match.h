// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace zel::platform {

/// True when `name` matches one of the patterns in `spec`. Patterns are separated by `;`, and
/// blanks before each are skipped. `*` stands for any bytes, `?` for one byte. `*.*` matches every
/// name. A dot at the end of a pattern stands for a dot at the end of the name.
bool path_match_spec(std::string_view name, std::string_view spec) noexcept;

/// True when a folder's listing by `pattern` contains `name`. It matches like `path_match_spec`,
/// with two differences: a dot at the end of the pattern also matches a missing extension, so that
/// `*.` lists the names without a dot; and `;` is an ordinary byte.
bool listing_matches(std::string_view name, std::string_view pattern) noexcept;

} // namespace zel::platform
