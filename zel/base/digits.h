// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

/// Decimal and hexadecimal digits: the value of one digit, and whole numbers written as text,
/// independent of the locale. digit_run.h reads whole numbers.
namespace zel {

/// 0 to 9; anything above means that `c` is no decimal digit.
constexpr unsigned int decimal_digit(char c) noexcept
{
    return static_cast<unsigned char>(c) - unsigned{'0'};
}

/// What `hexadecimal_digit` returns for a character that is no digit.
inline constexpr unsigned char no_digit = 0x80;

inline constexpr std::array<unsigned char, 256> hexadecimal_digit_values = [] {
    std::array<unsigned char, 256> table{};
    table.fill(no_digit);
    for (unsigned int i = 0; i < 10; ++i) {
        table['0' + i] = static_cast<unsigned char>(i);
    }
    for (unsigned int i = 0; i < 6; ++i) {
        table['a' + i] = table['A' + i] = static_cast<unsigned char>(10 + i);
    }
    return table;
}();

/// 0 to 15, or `no_digit`.
constexpr unsigned int hexadecimal_digit(char c) noexcept
{
    return hexadecimal_digit_values[static_cast<unsigned char>(c)];
}

/// 10 to the power of 0 to 19.
inline constexpr std::array<std::uint64_t, 20> powers_of_ten = [] {
    std::array<std::uint64_t, 20> table{};
    std::uint64_t power = 1;
    for (std::uint64_t & entry : table) {
        entry = power;
        power *= 10;
    }
    return table;
}();

/// This many decimal digits never overflow an unsigned 64-bit number.
inline constexpr std::size_t safe_digits = 19;

/// How many digits the decimal text of `value` has, 1 to 20.
constexpr unsigned int count_decimal_digits(std::uint64_t value) noexcept
{
    // 1233 / 4096 is slightly more than log10(2), close enough for 64 bits.
    auto const guess = static_cast<unsigned int>(std::bit_width(value | 1)) * 1233 >> 12;
    return guess + ((value | 1) >= powers_of_ten[guess] ? 1 : 0);
}

/// "00" to "99".
inline constexpr char digit_pairs[] = "00010203040506070809101112131415161718192021222324"
                                      "25262728293031323334353637383940414243444546474849"
                                      "50515253545556575859606162636465666768697071727374"
                                      "75767778798081828384858687888990919293949596979899";

/// Writes all digits of `value` in front of `end`, the last one at `end[-1]`.
/// \returns the place of the first digit.
inline char * write_decimal(char * end, std::uint64_t value) noexcept
{
    while (value >= 100) {
        end -= 2;
        std::memcpy(end, digit_pairs + value % 100 * 2, 2);
        value /= 100;
    }
    if (value >= 10) {
        end -= 2;
        std::memcpy(end, digit_pairs + value * 2, 2);
    } else {
        *--end = static_cast<char>('0' + value);
    }
    return end;
}

inline constexpr char capital_digits[] = "0123456789ABCDEF";
inline constexpr char small_digits[] = "0123456789abcdef";

/// Writes the lowest `count` hexadecimal digits of `value` to `text`.
/// \param digits  `capital_digits` or `small_digits`.
/// \returns the end of what was written.
inline char * write_hexadecimal(char * text, std::uint64_t value, unsigned int count,
                                char const * digits = capital_digits) noexcept
{
    for (unsigned int i = count; i-- != 0; value >>= 4) {
        text[i] = digits[value & 15];
    }
    return text + count;
}

} // namespace zel
