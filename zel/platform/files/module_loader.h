// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Loads a module, or adds one to its load count. Its functions are bound when they are first
/// called, and its names are not visible to other modules.
/// \param name  searched by the host's rules; a name with a backslash or a drive is a path.
/// \returns null with the last error `error_mod_not_found`, whose text is the host's reason.
void * load_library(char const * name) noexcept;

/// The address of a name that the module exports.
/// \returns null with the last error `error_proc_not_found`, whose text is the host's reason.
void * get_proc_address(void * module, char const * name) noexcept;

/// Removes one load.
bool free_library(void * module) noexcept;

} // namespace zel::platform
