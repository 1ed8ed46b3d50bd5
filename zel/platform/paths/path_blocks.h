// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/ascii.h"
#include "zel/base/block16.h"
#include "zel/platform/paths/max_path.h"
#include <bit>

/// Compares texts of paths 16 bytes at a time, ignoring the case of ASCII letters.
namespace zel::platform::path_blocks {

inline constexpr char case_bit = 'a' - 'A';
// Shifted so that `z` becomes the largest signed byte, all bytes above a limit are small letters.
inline constexpr char shift = 127 - 'z';
inline constexpr char limit = shift + 'a' - 1;

/// 16 bytes of the first text; a byte is 0 where the second text differs.
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

/// The index of the first byte that differs or ends both texts; each is in an array of `max_path`
/// bytes.
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

/// True if the texts are equal. At the byte found, they are equal if both end there.
inline bool equal_by_16(char const * first, char const * second) noexcept
{
    unsigned int const at = find_end_or_difference(first, second);
    return first[at] == second[at];
}

} // namespace zel::platform::path_blocks
