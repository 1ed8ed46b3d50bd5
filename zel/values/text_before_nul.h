// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/block16.h"
#include "zel/text/string.h"
#include <cstddef>
#include <cstring>

namespace zel {

/// True if the 16 bytes are equal and none of them is NUL.
inline bool equal_without_nul(char const * a, char const * b)
{
    auto const left = block16::load(a);
    auto const right = block16::load(b);
    return without(equal(left, right), equal(left, block16::filled('\0'))).sign_bits() == 0xFFFF;
}

/// True if `whole` equals the part of `other` before its first NUL.
inline bool equal_before_nul(string const & whole, string const & other)
{
    std::size_t const size = whole.size();
    char const * const a = whole.data();
    char const * const b = other.data();
    if (other.size() < size || b[size] != '\0') {
        return false;
    }
    if (size < 16) {
        return std::memcmp(a, b, size) == 0 && std::memchr(a, '\0', size) == nullptr;
    }
    std::size_t const last = size - 16; // the last block overlaps the one before it
    for (std::size_t i = 0; i < last; i += 16) {
        if (!equal_without_nul(a + i, b + i)) {
            return false;
        }
    }
    return equal_without_nul(a + last, b + last);
}

} // namespace zel
