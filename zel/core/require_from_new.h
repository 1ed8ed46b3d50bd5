// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"

namespace zel {

/// Ends the program with a message on the standard error output when `object` is a local of the
/// calling thread or a static object: the last `auto_ptr` to go would delete it. Other memory is
/// taken for memory from `new`. Slow; called by `auto_ptr` in debug builds alone.
ZEL_API void require_from_new(void const * object) noexcept;

} // namespace zel
