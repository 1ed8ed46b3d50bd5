// SPDX-License-Identifier: MIT
#pragma once

/// Removes files, folders and trees. Paths are those of file_attributes.h.
namespace zel::platform {

/// Removes an empty folder; a link to a folder gives `error_path_not_found`.
bool remove_directory(char const * path) noexcept;

/// Removes everything in the folder, and stops at the first entry that can't be removed. Links are
/// removed and their targets stay, even if a folder is replaced by a link meanwhile. An entry that
/// no path can name stays with its content, while the other entries are removed. The host's root is
/// refused.
/// \param through_link  false refuses a path that is itself a link.
bool empty_directory(char const * path, bool through_link) noexcept;

/// Removes a file or a link; a read-only file and a folder give `error_access_denied`.
bool delete_file(char const * path) noexcept;

} // namespace zel::platform
