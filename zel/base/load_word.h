// SPDX-License-Identifier: MIT
#pragma once

#include <cstring>

namespace zel {

/// The number that stands at a place of any alignment, its bytes in the host's order.
template <typename number> number load_word(void const * place) noexcept
{
    number value;
    std::memcpy(&value, place, sizeof value);
    return value;
}

} // namespace zel
