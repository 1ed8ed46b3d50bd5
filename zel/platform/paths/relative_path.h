// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// Relative paths and common prefixes. The texts are those of canonical_path.h.
namespace zel::platform {

/// The attribute bit that tells a folder from a file.
inline constexpr std::int32_t file_attribute_directory = 16;

/// Writes the relative path from `from` to `to`; both count as canonical. The attributes tell
/// folders from files; from a file, the path starts in the file's folder. Joined to its start, the
/// result gives `to` again.
/// \returns false when there is none: the roots differ, or neither text has a drive or a server and
///          they have no component in common.
bool path_relative_path_to(char * result, char const * from, std::int32_t from_attributes,
                           char const * to, std::int32_t to_attributes) noexcept;

/// Writes the components with which both texts begin; a drive's root includes its backslash. A
/// single leading backslash does not count.
/// \param result  may be null, to get only the length, or one of the texts.
/// \returns the length.
int path_common_prefix(char const * first, char const * second, char * result) noexcept;

} // namespace zel::platform
