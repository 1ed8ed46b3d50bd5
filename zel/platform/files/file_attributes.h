// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// Attributes and size of a file or a folder.
///
/// Paths are texts with drive `C:` or relative to the current folder, at most 259 bytes long; `..`
/// is resolved in the text before the host sees it. Symbolic links are followed, also one at the
/// end unless the function says otherwise. A failure sets the last error.
namespace zel::platform {

inline constexpr std::int32_t file_attribute_readonly = 1;
inline constexpr std::int32_t file_attribute_hidden = 2;
inline constexpr std::int32_t file_attribute_normal = 128;
inline constexpr std::int32_t invalid_file_attributes = -1;

/// Read-only when no user has the right to write; hidden when the name begins with a dot;
/// directory; normal when none of these holds. The host has no other attributes.
/// \returns `invalid_file_attributes` when there is no such file or folder.
std::int32_t get_file_attributes(char const * path) noexcept;

/// Removes the right to write from all users, or gives it to the owner when no user has it. Other
/// attributes can't be changed here and are ignored.
bool set_file_attributes(char const * path, std::int32_t attributes) noexcept;

bool path_file_exists(char const * path) noexcept;
bool path_is_directory(char const * path) noexcept;
/// True for a folder itself, false for a link to one.
bool path_is_unlinked_directory(char const * path) noexcept;

/// Always fails: this host can't mark a folder as one of the system's.
bool path_make_system_folder(char const * path) noexcept;
/// True for every folder, because no folder has the mark.
bool path_unmake_system_folder(char const * path) noexcept;

/// \returns false for a missing file and for anything but a plain file.
bool get_file_size(char const * path, std::uint64_t & size) noexcept;

} // namespace zel::platform
