// SPDX-License-Identifier: MIT
#include "zel/core/require_from_new.h"

#include "zel/platform/host/memory_kind.h"
#include <cstdio>
#include <cstdlib>

namespace zel {

void require_from_new(void const * object) noexcept
{
    char const * where = nullptr;
    switch (platform::memory_kind_of(object)) {
    case platform::memory_kind::own_stack:
        where = "a local object";
        break;
    case platform::memory_kind::module:
        where = "a static object";
        break;
    case platform::memory_kind::other:
        return;
    }
    std::fprintf(stderr, "zel: an object held by auto_ptr must come from new; %p is %s\n", object,
                 where);
    std::abort();
}

} // namespace zel
