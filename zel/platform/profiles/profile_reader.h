// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/profiles/profile_text.h"

namespace zel::platform {

/// Feeds a file to a finder, block by block, until the finder needs no more.
/// \param file  the host's own name, zero-terminated.
/// \returns true if the entry was found; false with the last error set.
bool find_in_profile(char const * file, entry_finder & finder) noexcept;

} // namespace zel::platform
