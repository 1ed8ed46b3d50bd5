// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// Finds the host's folders for temporary files, the user's data and the system's. Each function
/// writes a path with drive `C:` into an array of 260 bytes. It writes the empty text when there is
/// no such folder, or when its name can't be written as a path.
namespace zel::platform {

/// The folder in `TMPDIR`, else `/tmp`, with a backslash at its end. It need not exist.
void get_temp_path(char * result) noexcept;

/// The current folder of the process.
bool get_current_folder(char * result) noexcept;

/// The folder for one of the platform's numbers of special folders, created when it is missing.
/// \returns false when this host has none, or when it can't be created.
bool get_special_folder(std::uint32_t identifier, char * result) noexcept;

} // namespace zel::platform
