// SPDX-License-Identifier: MIT
#pragma once

/// Removing files, folders and trees. Paths are those of file_attributes.h.
namespace zel::platform {

/// Removes an empty folder; a link to one is `error_path_not_found`.
bool remove_directory(char const * path) noexcept;

/// Removes all that is in the folder, and stops at the first that can't be removed. Links inside
/// go, their targets stay, also when a folder is exchanged for a link meanwhile. An entry that no
/// path can name stays, with all that is in it, while the others go. The host's root is refused.
/// \param through_link  false refuses a path that is itself a link.
bool empty_directory(char const * path, bool through_link) noexcept;

/// Removes a file or a link; a read-only file and a folder are `error_access_denied`.
bool delete_file(char const * path) noexcept;

} // namespace zel::platform
