// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/ascii.h"
#include "zel/base/block16.h"
#include "zel/platform/paths/max_path.h"
#include <bit>

/// Path texts compared 16 bytes at a time, without regard to the case of ASCII letters.
namespace zel::platform::path_blocks {

inline constexpr char case_bit = 'a' - 'A';
// Moved so that `z` is the largest signed byte, the letters are those above a limit.
inline constexpr char shift = 127 - 'z';
inline constexpr char limit = shift + 'a' - 1;

/// 16 bytes of the first text, each made 0 where the second has another one.
inline block16 keep_equal(char const * first, char const * second) noexcept
{
    auto const a = block16::load(first);
    auto const b = block16::load(second);
    auto const small = a | block16::filled(case_bit);
    auto const letter = greater(small + block16::filled(shift), block16::filled(limit));
    auto const difference = without(a ^ b, letter & block16::filled(case_bit));
    return a & equal(difference, block16::filled(0));
}

/// One bit for each byte that is 0.
inline unsigned int zeros(block16 bytes) noexcept
{
    return equal(bytes, block16::filled(0)).sign_bits();
}

/// The first byte that differs or ends both texts, each in an array of `max_path` bytes.
inline unsigned int find_end_or_difference(char const * first, char const * second) noexcept
{
    constexpr unsigned int size = 16;
    unsigned int i = 0;
    for (; i + 2 * size <= max_path; i += 2 * size) {
        block16 const low = keep_equal(first + i, second + i);
        block16 const high = keep_equal(first + i + size, second + i + size);
        if (zeros(smaller(low, high)) != 0) [[unlikely]] {
            return i
                + static_cast<unsigned int>(std::countr_zero(zeros(low) | zeros(high) << size));
        }
    }
    i = max_path - size;
    return i
        + static_cast<unsigned int>(std::countr_zero(zeros(keep_equal(first + i, second + i))));
}

/// Whether the texts are the same: at a difference the bytes differ in more than their case, at the
/// end in nothing.
inline bool equal_by_16(char const * first, char const * second) noexcept
{
    unsigned int const at = find_end_or_difference(first, second);
    return first[at] == second[at];
}

} // namespace zel::platform::path_blocks
