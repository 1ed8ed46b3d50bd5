// SPDX-License-Identifier: MIT
#include "zel/version.h"

#include "zel/base/standard_library.h"

namespace zel {
int version() noexcept { return ZEL_VERSION; }

char const ZEL_STANDARD_LIBRARY = 0;
} // namespace zel
