// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// What the host tells of a file or a folder.
///
/// Paths are texts of drive `C:` or relative to the current folder, at most 259 bytes long; `..` is
/// resolved in the text, before the host sees it. Symbolic links on the way are followed, and so is
/// one at the end unless the function says otherwise. A failure sets the last error.
namespace zel::platform {

inline constexpr std::int32_t file_attribute_readonly = 1;
inline constexpr std::int32_t file_attribute_hidden = 2;
inline constexpr std::int32_t file_attribute_normal = 128;
inline constexpr std::int32_t invalid_file_attributes = -1;

/// Read-only when nobody has the right to write, hidden when the name begins with a dot, directory,
/// or normal when none of them holds. The host has no other attributes.
/// \returns `invalid_file_attributes` when there is no such file or folder.
std::int32_t get_file_attributes(char const * path) noexcept;

/// Takes the right to write from everybody, or gives it back to the owner when nobody has it. The
/// other attributes can't be changed here and are ignored.
bool set_file_attributes(char const * path, std::int32_t attributes) noexcept;

bool path_file_exists(char const * path) noexcept;
bool path_is_directory(char const * path) noexcept;
/// True for a folder itself, false for a link to one.
bool path_is_unlinked_directory(char const * path) noexcept;

/// Fails: no folder of this host can be told to be one of the system's.
bool path_make_system_folder(char const * path) noexcept;
/// True for every folder, since none has the attribute.
bool path_unmake_system_folder(char const * path) noexcept;

/// \returns false for a missing file and for everything that isn't a plain file.
bool get_file_size(char const * path, std::uint64_t & size) noexcept;

} // namespace zel::platform
