// SPDX-License-Identifier: MIT
#include "zel/text/rounded_decimal.h"

#include "zel/base/digits.h"
#include <array>
#include <bit>
#include <cstddef>

namespace zel {
namespace {

constexpr uint128 low_bits(int count) { return (uint128{1} << count) - 1; }

// A normal number is `mantissa` * 2^`exponent`.
struct parts {
    std::uint64_t mantissa;
    int exponent;
};

constexpr int mantissa_bits = 53;

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

// Rounds number / 2^cut: the bits that are cut off decide.
bool cut_off(uint128 number, int cut, std::uint64_t & result) noexcept
{
    if (cut < 1 || cut > 127 || number >> cut > UINT64_MAX - 1) {
        return false;
    }
    auto const whole = static_cast<std::uint64_t>(number >> cut);
    uint128 const rest = number & low_bits(cut);
    uint128 const half = uint128{1} << (cut - 1);
    result = whole + (rest > half || (rest == half && whole % 2 != 0) ? 1 : 0);
    return true;
}

// Multiplies by a power of ten up to 10^19.
bool scale_up(parts number, int scale, std::uint64_t & result) noexcept
{
    return cut_off(uint128{number.mantissa} * powers_of_ten[static_cast<std::size_t>(scale)],
                   -number.exponent, result);
}

// Divides by such a power. The remainder and the bits below the integer part decide the rounding.
bool scale_down(parts number, int scale, std::uint64_t & result) noexcept
{
    std::uint64_t whole = number.mantissa;
    bool bits_below = false;
    if (number.exponent >= 0) {
        if (number.exponent > 64 - mantissa_bits) {
            return false;
        }
        whole <<= number.exponent;
    } else {
        int const cut = -number.exponent;
        whole = cut > 63 ? 0 : number.mantissa >> cut;
        bits_below = cut > 63 || (number.mantissa & low_bits(cut)) != 0;
    }
    std::uint64_t const divisor = powers_of_ten[static_cast<std::size_t>(scale)];
    std::uint64_t const quotient = whole / divisor;
    std::uint64_t const rest = whole % divisor;
    std::uint64_t const half = divisor / 2; // exact: a power of ten above 1 is even
    bool const up = rest > half || (rest == half && (bits_below || quotient % 2 != 0));
    result = quotient + (up ? 1 : 0);
    return true;
}

constexpr int largest_wide_scale = 54;

// 5 to the power of 0 to 54, exact.
constexpr auto powers_of_five = [] {
    std::array<uint128, largest_wide_scale + 1> table{};
    uint128 power = 1;
    for (uint128 & entry : table) {
        entry = power;
        power *= 5;
    }
    return table;
}();

constexpr int width_of(uint128 value)
{
    auto const high = static_cast<std::uint64_t>(value >> 64);
    return static_cast<int>(high != 0 ? 64 + std::bit_width(high)
                                      : std::bit_width(static_cast<std::uint64_t>(value)));
}

// 2^shift / 5^k, rounded down. The shift is chosen so that the result has 128 bits.
struct reciprocal {
    uint128 value;
    int shift;
};

constexpr auto reciprocals_of_five = [] {
    std::array<reciprocal, largest_wide_scale + 1> table{};
    for (std::size_t k = 1; k < table.size(); ++k) {
        uint128 const divisor = powers_of_five[k];
        int const width = width_of(divisor) - 1;
        uint128 rest = uint128{1} << width;
        for (int bit = 0; bit < 128; ++bit) {
            rest <<= 1;
            table[k].value = table[k].value << 1 | (rest >= divisor ? 1 : 0);
            rest -= rest >= divisor ? divisor : 0;
        }
        table[k].shift = 128 + width;
    }
    return table;
}();

// The same for the number high * 2^64 + low, which is approximate: the true number is at least
// that, and less than `error` above it.
bool cut_off(uint128 high, std::uint64_t low, int cut, std::uint64_t error,
             std::uint64_t & result) noexcept
{
    if (high >> 64 == 0 && error == 0 && cut <= 127) {
        return cut_off(high << 64 | low, cut, result);
    }
    cut -= 64;
    if (cut < 1 || cut > 127 || high >> cut > UINT64_MAX - 1) {
        return false;
    }
    auto const whole = static_cast<std::uint64_t>(high >> cut);
    uint128 const rest = high & low_bits(cut);
    uint128 const half = uint128{1} << (cut - 1);
    bool const tie = rest == half && low == 0;
    if (error != 0 && (tie || (rest + 1 == half && low > 0 - error))) {
        return false; // it is unknown on which side of the half the true number is
    }
    result = whole + (rest > half || (rest == half && !tie) || (tie && whole % 2 != 0) ? 1 : 0);
    return true;
}

// Scales by 10^-54 to 10^54; the powers below 1 are not exact.
bool scale_widely(parts number, int scale, std::uint64_t & result) noexcept
{
    if (scale > largest_wide_scale || scale < -largest_wide_scale) {
        return false;
    }
    auto const index = static_cast<std::size_t>(scale < 0 ? -scale : scale);
    reciprocal const factor
        = scale < 0 ? reciprocals_of_five[index] : reciprocal{powers_of_five[index], 0};
    uint128 const low = uint128{number.mantissa} * static_cast<std::uint64_t>(factor.value);
    uint128 const high
        = uint128{number.mantissa} * static_cast<std::uint64_t>(factor.value >> 64) + (low >> 64);
    return cut_off(high, static_cast<std::uint64_t>(low), factor.shift - number.exponent - scale,
                   scale < 0 ? std::uint64_t{1} << mantissa_bits : 0, result);
}

bool scale_by_ten(parts number, int scale, std::uint64_t & result) noexcept
{
    constexpr int largest = static_cast<int>(powers_of_ten.size()) - 1;
    return (scale >= 0 && scale <= largest && scale_up(number, scale, result))
        || (scale < 0 && scale >= -largest && scale_down(number, -scale, result))
        || scale_widely(number, scale, result);
}

} // namespace

bool round_to_places(double value, int places, uint128 & whole, std::uint64_t & fraction) noexcept
{
    parts number{};
    if (value == 0) {
        whole = 0;
        fraction = 0;
        return true;
    }
    if (!take_apart(value, number) || number.exponent > 128 - mantissa_bits) {
        return false;
    }
    if (number.exponent >= 0) {
        whole = uint128{number.mantissa} << number.exponent;
        fraction = 0;
        return true;
    }
    int const cut = -number.exponent;
    std::uint64_t const limit = powers_of_ten[static_cast<std::size_t>(places)];
    std::uint64_t front = cut < 64 ? number.mantissa >> cut : 0;
    std::uint64_t const behind
        = cut < 64 ? number.mantissa & static_cast<std::uint64_t>(low_bits(cut)) : number.mantissa;
    std::uint64_t back = 0;
    if (cut <= 127) { // otherwise it is far less than half of the last place
        uint128 const product = uint128{behind} * limit;
        back = static_cast<std::uint64_t>(product >> cut);
        uint128 const rest = product & low_bits(cut);
        uint128 const half = uint128{1} << (cut - 1);
        bool const odd = (places == 0 ? front : back) % 2 != 0;
        back += rest > half || (rest == half && odd) ? 1 : 0;
        if (back == limit) {
            back = 0;
            ++front;
        }
    }
    whole = front;
    fraction = back;
    return true;
}

bool round_to_digits(double value, int digits, std::uint64_t & result, int & exponent) noexcept
{
    parts number{};
    if (!take_apart(value, number)) {
        return false;
    }
    // 78913 / 2^18 is slightly less than log10(2), close enough for every exponent of a double: the
    // power is correct or one too low. If it is too low there is one digit too many.
    int power = (number.exponent + 52) * 78913 >> 18;
    std::uint64_t rounded = 0;
    if (!scale_by_ten(number, digits - 1 - power, rounded)) {
        return false;
    }
    if (rounded >= powers_of_ten[static_cast<std::size_t>(digits)]) {
        ++power;
        if (!scale_by_ten(number, digits - 1 - power, rounded)) {
            return false;
        }
    }
    result = rounded;
    exponent = power;
    return true;
}

} // namespace zel
