// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

/// Operations on one folder. Paths are those of file_attributes.h.
namespace zel::platform {

/// Sets the current folder of the whole process.
bool set_current_directory(char const * path) noexcept;

/// Creates one folder; an existing one gives `error_already_exists`.
bool create_directory(char const * path) noexcept;

/// Creates a new empty file that is named `prefix`, four hexadecimal digits and `.TMP`. Only its
/// owner may read or write it.
/// \param result  an array of `max_path` bytes, empty on failure.
bool get_temp_file_name(char const * folder, char const * prefix, char * result) noexcept;

/// Calls `take` for each name in the folder except `.` and `..`, in the host's order. A name may
/// contain any bytes that the host allows; it is valid during the call.
bool list_directory(char const * path, void (*take)(void * context, std::string_view name),
                    void * context);

} // namespace zel::platform
