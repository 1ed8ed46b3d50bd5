// SPDX-License-Identifier: MIT
#include "zel/text/rounded_decimal.h"

#include "zel/base/digits.h"
#include <bit>

namespace zel {
namespace {

__extension__ using wide = unsigned __int128;

constexpr int largest_power = 19;

// A normal number is `mantissa` times 2 to the power of `exponent`.
struct parts {
    std::uint64_t mantissa;
    int exponent;
};

bool take_apart(double value, parts & result) noexcept
{
    auto const bits = std::bit_cast<std::uint64_t>(value);
    int const stored = static_cast<int>(bits >> 52 & 0x7FF);
    if (stored == 0 || stored == 0x7FF) {
        return false;
    }
    result.mantissa = (bits & 0xF'FFFF'FFFF'FFFF) | std::uint64_t{1} << 52;
    result.exponent = stored - 1023 - 52;
    return true;
}

// Multiplies and cuts off bits; what is cut off decides the rounding.
bool scale_up(parts number, int scale, std::uint64_t & result) noexcept
{
    wide const product = wide{number.mantissa} * powers_of_ten[static_cast<std::size_t>(scale)];
    if (number.exponent >= 0) {
        if (number.exponent > 11 || product >> (64 - number.exponent) != 0) {
            return false;
        }
        result = static_cast<std::uint64_t>(product) << number.exponent;
        return true;
    }
    int const cut = -number.exponent;
    if (cut > 127 || product >> cut > UINT64_MAX - 1) {
        return false;
    }
    auto const whole = static_cast<std::uint64_t>(product >> cut);
    wide const rest = product & ((wide{1} << cut) - 1);
    wide const half = wide{1} << (cut - 1);
    result = whole + (rest > half || (rest == half && whole % 2 != 0) ? 1 : 0);
    return true;
}

// Divides; the remainder and the bits below the whole part decide the rounding.
bool scale_down(parts number, int scale, std::uint64_t & result) noexcept
{
    std::uint64_t whole = number.mantissa;
    bool bits_below = false;
    if (number.exponent >= 0) {
        if (number.exponent > 11) {
            return false;
        }
        whole <<= number.exponent;
    } else {
        int const cut = -number.exponent;
        whole = cut > 63 ? 0 : number.mantissa >> cut;
        bits_below = cut > 63 || (number.mantissa & ((std::uint64_t{1} << cut) - 1)) != 0;
    }
    std::uint64_t const divisor = powers_of_ten[static_cast<std::size_t>(scale)];
    std::uint64_t const quotient = whole / divisor;
    std::uint64_t const rest = whole % divisor;
    std::uint64_t const half = divisor / 2; // exact: a power of ten above 1 is even
    bool const up = rest > half || (rest == half && (bits_below || quotient % 2 != 0));
    result = quotient + (up ? 1 : 0);
    return true;
}

bool round_parts(parts number, int scale, std::uint64_t & result) noexcept
{
    if (scale < -largest_power || scale > largest_power) {
        return false;
    }
    return scale >= 0 ? scale_up(number, scale, result) : scale_down(number, -scale, result);
}

} // namespace

bool round_scaled(double value, int scale, std::uint64_t & result) noexcept
{
    if (value == 0) {
        result = 0;
        return true;
    }
    parts number{};
    return take_apart(value, number) && round_parts(number, scale, result);
}

bool round_to_digits(double value, int digits, std::uint64_t & result, int & exponent) noexcept
{
    parts number{};
    if (!take_apart(value, number)) {
        return false;
    }
    // 78913 / 2^18 is log10(2) from below, closely enough for every exponent of a double that the
    // rounding takes. The power is right or one too low, which shows as one digit too many.
    int power = (number.exponent + 52) * 78913 >> 18;
    std::uint64_t rounded = 0;
    if (!round_parts(number, digits - 1 - power, rounded)) {
        return false;
    }
    if (rounded >= powers_of_ten[static_cast<std::size_t>(digits)]) {
        ++power;
        if (!round_parts(number, digits - 1 - power, rounded)) {
            return false;
        }
    }
    result = rounded;
    exponent = power;
    return true;
}

} // namespace zel
