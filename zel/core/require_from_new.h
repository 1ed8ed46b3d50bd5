// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"

namespace zel {

/// Ends the program with a message if `object` is a local of the calling thread or a static object,
/// which the last `auto_ptr` would delete. Any other memory is taken for memory from `new`. Slow;
/// `auto_ptr` calls it in debug builds only.
ZEL_API void require_from_new(void const * object) noexcept;

} // namespace zel
