// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace zel::platform {

/// True when `name` matches one of the patterns in `spec`, which are parted by `;`; blanks in front
/// of each are skipped. `*` stands for any bytes and `?` for one. `*.*` matches every name, and the
/// dot that ends a pattern also stands for the missing extension of a name without a dot.
bool path_match_spec(std::string_view name, std::string_view spec) noexcept;

/// True when `name` matches the one pattern, as `path_match_spec` matches each of its.
bool name_matches(std::string_view name, std::string_view pattern) noexcept;

} // namespace zel::platform
