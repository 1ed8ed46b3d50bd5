// SPDX-License-Identifier: MIT
#pragma once

#include <cstring>

namespace zel {

/// Reads a number from an address of any alignment, in the host's byte order.
template <typename number> number load_word(void const * place) noexcept
{
    number value;
    std::memcpy(&value, place, sizeof value);
    return value;
}

} // namespace zel
