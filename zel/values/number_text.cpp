// SPDX-License-Identifier: MIT
#include "zel/values/number_text.h"

#include "zel/base/ascii.h"
#include "zel/base/digits.h"
#include "zel/platform/host/locale.h"
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <system_error>

namespace zel::number_text {
namespace {

// The white space of the "C" locale.
constexpr bool is_blank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

constexpr bool is_letter(char c, char lower) { return (c | 0x20) == lower; }

constexpr std::uint64_t limit_of(bool negative)
{
    return std::uint64_t{0x7FFFFFFF} + (negative ? 1 : 0);
}

constexpr std::int64_t with_sign(bool negative, std::uint64_t magnitude)
{
    return static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude);
}

// Powers of 10 that are exact as a double.
constexpr double exact_powers[]
    = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
       1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr std::int64_t largest_power = std::size(exact_powers) - 1;
constexpr std::uint64_t largest_exact_integer = std::uint64_t{1} << 53;

// Reads eight digits at once, the first in the lowest byte. Neighbours are joined to numbers of
// two, then four, then eight digits.
bool read_eight_digits(char const * text, std::uint64_t & result)
{
    static_assert(std::endian::native == std::endian::little);
    std::uint64_t bytes = 0;
    std::memcpy(&bytes, text, sizeof(bytes));
    constexpr std::uint64_t high_halves = 0xF0F0F0F0F0F0F0F0;
    // The addition moves ':' and the bytes above it out of the range of the digits.
    if ((bytes & high_halves) != 0x3030303030303030
        || ((bytes + 0x0606060606060606) & high_halves) != 0x3030303030303030) {
        return false;
    }
    bytes -= 0x3030303030303030;
    bytes = (bytes * 10 + (bytes >> 8)) & 0x00FF00FF00FF00FF;
    bytes = (bytes * 100 + (bytes >> 16)) & 0x0000FFFF0000FFFF;
    result = (bytes * 10000 + (bytes >> 32)) & 0xFFFFFFFF;
    return true;
}

// Reads what is valid for `strtod` but is not a plain decimal number.
outcome read_double_by_runtime(char const * text, double & result)
{
    char const * end = text;
    result = platform::c_locale_strtod(text, &end);
    return end == text ? outcome::no_number : outcome::done;
}

} // namespace

outcome read_bool(char const * text, bool & result) noexcept
{
    std::string_view const word = text;
    result = word == "1" || ascii::equal_without_case(word, "true");
    return result || word == "0" || ascii::equal_without_case(word, "false") ? outcome::done
                                                                             : outcome::no_number;
}

outcome read_any_base(char const * text, std::int32_t & result) noexcept
{
    while (is_blank(*text)) {
        ++text;
    }
    bool const negative = *text == '-';
    text += negative || *text == '+' ? 1 : 0;
    unsigned base = 10;
    if (*text == '0') {
        // "0x" without a digit after it is the number 0, and the rest is ignored.
        bool const prefix = is_letter(text[1], 'x') && hexadecimal_digit(text[2]) < 16;
        base = prefix ? 16 : 8;
        text += prefix ? 2 : 0;
    }
    char const * const first = text;
    std::uint64_t const limit = limit_of(negative);
    std::uint64_t magnitude = 0;
    for (unsigned digit; (digit = hexadecimal_digit(*text)) < base; ++text) {
        magnitude = magnitude * base + digit;
        magnitude = magnitude > limit ? limit : magnitude;
    }
    result = static_cast<std::int32_t>(with_sign(negative, magnitude));
    return text == first ? outcome::no_number : outcome::done;
}

outcome read_signed(std::string_view text, std::int32_t & result) noexcept
{
    char const * p = text.data();
    char const * const end = p + text.size();
    bool const negative = *p == '-';
    p += negative || *p == '+' ? 1 : 0;
    char const * const first = p;
    while (*p == '0') {
        ++p;
    }
    char const * const significant = p;
    std::uint64_t magnitude = 0;
    if (end - p >= 8 && read_eight_digits(p, magnitude)) {
        p += 8;
    }
    for (unsigned digit; (digit = decimal_digit(*p)) <= 9; ++p) {
        magnitude = magnitude * 10 + digit; // may wrap after safe_digits; checked below
    }
    result = static_cast<std::int32_t>(with_sign(negative, magnitude));
    return *p == '\0' && p != first && p - significant <= std::ptrdiff_t{safe_digits}
            && magnitude <= limit_of(negative)
        ? outcome::done
        : outcome::no_number;
}

outcome read_unsigned(char const * text, std::uint32_t & result) noexcept
{
    constexpr std::uint64_t limit = std::numeric_limits<std::uint32_t>::max();
    bool hexadecimal = text[0] == '0' && is_letter(text[1], 'x');
    text += hexadecimal ? 2 : 0;
    char const * const first = text;
    std::uint64_t decimal_value = 0;
    std::uint64_t hexadecimal_value = 0;
    for (unsigned digit; (digit = hexadecimal_digit(*text)) < 16; ++text) {
        hexadecimal = hexadecimal || digit > 9;
        decimal_value = decimal_value * 10 + digit;
        hexadecimal_value = hexadecimal_value << 4 | digit;
        // A text that is too large as a decimal number is also too large as a hexadecimal one, so a
        // letter behind it cannot bring it back into range.
        if ((hexadecimal ? hexadecimal_value : decimal_value) > limit) {
            return outcome::no_number;
        }
    }
    result = static_cast<std::uint32_t>(hexadecimal ? hexadecimal_value : decimal_value);
    return *text != '\0' || text == first ? outcome::no_number : outcome::done;
}

outcome read_leading_digits(char const * text, std::int64_t & result) noexcept
{
    constexpr std::uint64_t limit = std::numeric_limits<std::int64_t>::max();
    char const * const first = text;
    std::uint64_t magnitude = 0;
    for (unsigned digit; (digit = decimal_digit(*text)) <= 9; ++text) {
        if (magnitude > (limit - digit) / 10) {
            return outcome::out_of_range;
        }
        magnitude = magnitude * 10 + digit;
    }
    result = static_cast<std::int64_t>(magnitude);
    return text == first ? outcome::no_number : outcome::done;
}

outcome read_double(char const * text, double & result)
{
    char const * p = text;
    while (is_blank(*p)) {
        ++p;
    }
    bool const negative = *p == '-';
    p += negative || *p == '+' ? 1 : 0;

    char const * const first = p;
    std::uint64_t digits = 0;
    auto const read_digits = [&] {
        char const * const start = p;
        for (unsigned digit; (digit = decimal_digit(*p)) <= 9; ++p) {
            digits = digits * 10 + digit; // may wrap after safe_digits; checked below
        }
        return p - start;
    };
    std::ptrdiff_t count = read_digits();
    std::int64_t exponent = 0;
    if (*p == '.') {
        ++p;
        exponent = -read_digits();
        count -= exponent;
    }
    if (count == 0 || (*first == '0' && is_letter(first[1], 'x'))) {
        return read_double_by_runtime(text, result); // hexadecimal, infinity, NaN, or no number
    }
    if (is_letter(*p, 'e')) {
        char const * q = p + 1;
        bool const negative_exponent = *q == '-';
        q += negative_exponent || *q == '+' ? 1 : 0;
        if (decimal_digit(*q) <= 9) { // otherwise the letter is part of the ignored rest
            std::int64_t given = 0;
            for (unsigned digit; (digit = decimal_digit(*q)) <= 9; ++q) {
                given = given < 100'000 ? given * 10 + static_cast<std::int64_t>(digit) : given;
            }
            exponent += negative_exponent ? -given : given;
            p = q;
        }
    }

    // Both numbers are exact and the operation rounds once, so the result is the nearest double.
    if (count <= std::ptrdiff_t{safe_digits} && digits <= largest_exact_integer
        && exponent >= -largest_power && exponent <= largest_power) [[likely]] {
        auto const value = static_cast<double>(digits);
        double const magnitude
            = exponent < 0 ? value / exact_powers[-exponent] : value * exact_powers[exponent];
        result = negative ? -magnitude : magnitude;
        return outcome::done;
    }
#if defined(__cpp_lib_to_chars) // some standard libraries lack it for floating types
    double magnitude = 0.0;
    if (std::from_chars(first, p, magnitude).ec == std::errc()) {
        result = negative ? -magnitude : magnitude;
        return outcome::done;
    }
#endif
    return read_double_by_runtime(text, result);
}

std::size_t write_integer(char (&text)[longest], std::int64_t value) noexcept
{
    return static_cast<std::size_t>(std::to_chars(text, text + longest, value).ptr - text);
}

std::size_t write_double(char (&text)[longest], double value) noexcept
{
    if (!std::isfinite(value)) { // standard libraries write these differently
        std::string_view const word = std::isnan(value) ? "-nan" : "-inf";
        std::size_t const skipped = std::signbit(value) ? 0 : 1;
        std::memcpy(text, word.data() + skipped, word.size() - skipped);
        return word.size() - skipped;
    }
    auto const end = std::to_chars(text, text + longest, value, std::chars_format::general, 6);
    return static_cast<std::size_t>(end.ptr - text);
}

} // namespace zel::number_text
