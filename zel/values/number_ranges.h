// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstdint>

/// Tells which numbers fit an integer of `bits` bits, 1 to 64, including its sign. The name gives
/// the source and the target: u for unsigned, s for signed, d for double.
namespace zel {

// True if no bit is set at `position` or above.
constexpr bool is_below(std::uint64_t value, int position)
{
    return position >= 64 || value >> std::max(position, 0) == 0;
}

constexpr bool fits_u_to_u(std::uint64_t value, int bits) { return is_below(value, bits); }

constexpr bool fits_s_to_u(std::int64_t value, int bits)
{
    return value >= 0 && is_below(static_cast<std::uint64_t>(value), bits);
}

constexpr bool fits_u_to_s(std::uint64_t value, int bits) { return is_below(value, bits - 1); }

constexpr bool fits_s_to_s(std::int64_t value, int bits)
{
    return is_below(static_cast<std::uint64_t>(value < 0 ? ~value : value), bits - 1);
}

// 2 to the power `position`, from 0 to 64.
constexpr double power_of_2(int position)
{
    position = std::clamp(position, 0, 64);
    return position == 64 ? 0x1p64 : static_cast<double>(std::uint64_t{1} << position);
}

// True if `value` is at most 2^position - 1. A double holds that integer for up to 53 bits; larger
// doubles have no fraction, so the power itself is the bound. False for a NaN.
constexpr bool is_below(double value, int position)
{
    double const power = power_of_2(position);
    return position <= 53 ? value <= power - 1.0 : value < power;
}

constexpr bool fits_d_to_u(double value, int bits) { return value >= 0.0 && is_below(value, bits); }

constexpr bool fits_d_to_s(double value, int bits)
{
    return value >= -power_of_2(bits - 1) && is_below(value, bits - 1);
}

} // namespace zel
