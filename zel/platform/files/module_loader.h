// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Loads a module, or counts one more load of it. Its names are bound when they are first called
/// and seen by nobody else.
/// \param name  searched by the host's rule; one with a backslash or a drive is a path.
/// \returns null with the last error `error_mod_not_found`, whose text is the host's reason.
void * load_library(char const * name) noexcept;

/// The address of a name that the module exports.
/// \returns null with the last error `error_proc_not_found`, whose text is the host's reason.
void * get_proc_address(void * module, char const * name) noexcept;

/// Gives one load up.
bool free_library(void * module) noexcept;

} // namespace zel::platform
