// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace zel::platform {

/// True when `name` matches one of the patterns in `spec`, which are parted by `;`; blanks in front
/// of each are skipped. `*` stands for any bytes and `?` for one. `*.*` matches every name. A dot at
/// the end of a pattern stands for a dot at the end of the name.
bool path_match_spec(std::string_view name, std::string_view spec) noexcept;

/// True when the listing of a folder by `pattern` has `name` in it. It matches as `path_match_spec`
/// does, but takes the dot that ends a pattern for a missing extension too: `*.` lists the names
/// without a dot. A `;` is a byte like any other.
bool listing_matches(std::string_view name, std::string_view pattern) noexcept;

} // namespace zel::platform
