// SPDX-License-Identifier: MIT
#include "zel/platform/locale.h"

#include <langinfo.h>

namespace zel::platform {

bool decimal_point_is_period() noexcept
{
    // Not localeconv(): it fills a structure that all threads share.
    char const * const point = ::nl_langinfo(RADIXCHAR);
    return point[0] == '.' && point[1] == '\0';
}

} // namespace zel::platform
