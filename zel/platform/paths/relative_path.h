// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// What two paths have in common; the texts are those of canonical_path.h.
namespace zel::platform {

/// The attribute bit that tells a folder from a file.
inline constexpr std::int32_t file_attribute_directory = 16;

/// Writes the relative path that leads from `from` to `to`, both taken as canonical. The attributes
/// tell folders from files; from a file the way begins in the folder that holds it. Joined to where
/// it begins, it gives `to` again.
/// \returns false when there is none: the roots differ, or two texts without a drive or a server
///          have no component in common.
bool path_relative_path_to(char * result, char const * from, std::int32_t from_attributes,
                           char const * to, std::int32_t to_attributes) noexcept;

/// Writes the components that both texts begin with, a drive's root with its backslash. A lone
/// backslash in front is none.
/// \param result  may be null, for the length alone, or one of the texts.
/// \returns its length.
int path_common_prefix(char const * first, char const * second, char * result) noexcept;

} // namespace zel::platform
