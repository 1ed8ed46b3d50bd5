// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"

namespace zel {

/// Ends the program with a message if `object` is a local of the calling thread or a static object:
/// the last `auto_ptr` would delete it. All other memory is assumed to come from `new`. It is slow;
/// `auto_ptr` calls it in debug builds only.
ZEL_API void require_from_new(void const * object) noexcept;

} // namespace zel
