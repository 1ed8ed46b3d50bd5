// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/profiles/private_profile.h"
#include <span>

namespace zel::platform {

/// Rewrites a file with the entries, as `write_private_profile_entries` promises.
/// \param refused  set to true if an entry was refused for its text.
/// \returns false with the last error set when the host prevented entries from being written.
bool rewrite_profile(std::span<private_profile_entry const> entries, char const * file,
                     bool & refused);

} // namespace zel::platform
