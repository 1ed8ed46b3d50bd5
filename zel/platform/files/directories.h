// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

/// Folders, one at a time. Paths are those of file_attributes.h.
namespace zel::platform {

/// Of the whole process.
bool set_current_directory(char const * path) noexcept;

/// Creates one folder; an existing one is `error_already_exists`.
bool create_directory(char const * path) noexcept;

/// Creates an empty file named `prefix`, four hexadecimal digits and `.TMP`, which did not exist
/// before, readable by its owner alone.
/// \param result  an array of `max_path` bytes, empty on failure.
bool get_temp_file_name(char const * folder, char const * prefix, char * result) noexcept;

/// Calls `take` for each name in the folder but `.` and `..`, in the order of the host. A name is
/// as the host has it, whatever its bytes; it is valid during the call.
bool list_directory(char const * path, void (*take)(void * context, std::string_view name),
                    void * context);

} // namespace zel::platform
