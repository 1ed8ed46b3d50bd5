// SPDX-License-Identifier: MIT
#include "zel/platform/paths/path_compare.h"

#include "zel/platform/paths/path_blocks.h"

namespace zel::platform {

bool path_equal(char const * first, char const * second) noexcept
{
    return path_blocks::equal_by_16(first, second);
}

} // namespace zel::platform
