// SPDX-License-Identifier: MIT
#include "zel/text/convert.h"

#include "zel/base/digit_run.h"
#include "zel/base/digits.h"
#include "zel/text/careful_parser.h"
#include <algorithm>
#include <cstddef>
#include <limits>

namespace zel {
namespace {

using careful_parser::refuse;
using careful_parser::refuse_symbol;
using failure = convert::exception;

constexpr char const * reasons[] = {
    "Zel Conversion Exception: Data convert error",
    "Zel Conversion Exception: out of range",
    "Zel Conversion Exception: wrong symbol",
    "Zel Conversion Exception: unexpected end",
};

bool is_plain(std::size_t count) { return count >= 1 && count <= safe_digits; }

template <typename integer> integer parse_signed(char const * text)
{
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<integer>::max());
    bool const negative = *text == '-';
    char const * const first = text + (negative || *text == '+' ? 1 : 0);
    digit_run const run = read_digit_run(first);
    if (first[run.count] == '\0' && is_plain(run.count)
        && run.value <= careful_parser::limit_of(negative, largest)) [[likely]] {
        return static_cast<integer>(careful_parser::with_sign(negative, run.value));
    }
    return static_cast<integer>(careful_parser::parse_signed(text, SIZE_MAX, largest));
}

bool has_prefix(char const * text) { return text[0] == '0' && (text[1] | 0x20) == 'x'; }

[[gnu::noinline]] std::uint64_t parse_unsigned_carefully(char const * text, std::uint64_t limit)
{
    if (*text == '\0') {
        refuse(failure::unexpected_end, 0);
    }
    bool hexadecimal = has_prefix(text);
    std::ptrdiff_t i = hexadecimal ? 2 : 0;
    if (text[i] == '\0') {
        refuse(failure::unexpected_end, 2);
    }
    std::uint64_t decimal_value = 0;
    std::uint64_t hexadecimal_value = 0;
    bool too_long = false; // the hexadecimal value overflowed, which matters only if it is used
    for (; text[i] != '\0'; ++i) {
        unsigned const digit = hexadecimal_digit(text[i]);
        if (digit == no_digit) {
            refuse_symbol(i, text[i]);
        }
        hexadecimal = hexadecimal || digit > 9;
        too_long = too_long || hexadecimal_value > UINT64_MAX >> 4;
        hexadecimal_value = hexadecimal_value << 4 | digit;
        if (hexadecimal ? too_long || hexadecimal_value > limit
                        : decimal_value > (limit - digit) / 10) {
            refuse(failure::out_of_range, i);
        }
        decimal_value = decimal_value * 10 + digit;
    }
    return hexadecimal ? hexadecimal_value : decimal_value;
}

template <typename integer> integer parse_unsigned(char const * text)
{
    constexpr std::uint64_t limit = std::numeric_limits<integer>::max();
    digit_run const run = read_digit_run(text);
    // The digits before a letter have to fit as a decimal number too.
    bool const fits = run.count <= safe_digits && run.value <= limit;
    if (text[run.count] == '\0') [[likely]] {
        if (fits && run.count != 0) [[likely]] {
            return static_cast<integer>(run.value);
        }
    } else if (fits) {
        char const * const first = text + (has_prefix(text) ? 2 : 0);
        digit_run const all = read_hexadecimal_run(first);
        if (first[all.count] == '\0' && all.count >= 1 && all.count <= 16 && all.value <= limit)
            [[likely]] {
            return static_cast<integer>(all.value);
        }
    }
    return static_cast<integer>(parse_unsigned_carefully(text, limit));
}

} // namespace

void careful_parser::refuse(failure::exc_type type, std::ptrdiff_t position)
{
    throw failure(type, static_cast<std::int32_t>(position), nullptr);
}

void careful_parser::refuse_symbol(std::ptrdiff_t position, char symbol)
{
    throw failure(failure::wrong_symbol, static_cast<std::int32_t>(position), symbol, nullptr);
}

std::int64_t careful_parser::parse_signed(char const * text, std::size_t length,
                                          std::uint64_t largest)
{
    auto const at = [&](std::size_t i) { return i < length ? text[i] : '\0'; };
    if (at(0) == '\0') {
        refuse(failure::unexpected_end, 0);
    }
    bool const negative = text[0] == '-';
    std::size_t i = negative || text[0] == '+' ? 1 : 0;
    if (at(i) == '\0') {
        refuse(failure::unexpected_end, 1);
    }
    std::uint64_t const limit = limit_of(negative, largest);
    std::uint64_t magnitude = 0;
    for (; at(i) != '\0'; ++i) {
        unsigned const digit = decimal_digit(text[i]);
        if (digit > 9) {
            refuse_symbol(static_cast<std::ptrdiff_t>(i), text[i]);
        }
        // A limit below 9 does not occur, so the difference cannot wrap.
        if (magnitude > (limit - digit) / 10) {
            refuse(failure::out_of_range, static_cast<std::ptrdiff_t>(i));
        }
        magnitude = magnitude * 10 + digit;
    }
    return with_sign(negative, magnitude);
}

convert::exception::exception(exc_type type, std::int32_t, char const * text)
    : zel::exception(type, reasons, text)
{
}

convert::exception::exception(exc_type type, std::int32_t, char, char const * text)
    : zel::exception(type, reasons, text)
{
}

convert::exception::~exception() = default;

signed char convert::stringToInt8(char const * text) { return parse_signed<signed char>(text); }
short convert::stringToInt16(char const * text) { return parse_signed<short>(text); }
std::int32_t convert::stringToInt32(char const * text) { return parse_signed<std::int32_t>(text); }
std::int64_t convert::stringToInt64(char const * text) { return parse_signed<std::int64_t>(text); }

unsigned char convert::stringToUInt8(char const * text)
{
    return parse_unsigned<unsigned char>(text);
}
unsigned short convert::stringToUInt16(char const * text)
{
    return parse_unsigned<unsigned short>(text);
}
std::uint32_t convert::stringToUInt32(char const * text)
{
    return parse_unsigned<std::uint32_t>(text);
}
std::uint64_t convert::stringToUInt64(char const * text)
{
    return parse_unsigned<std::uint64_t>(text);
}

std::int64_t convert::getIntFromString(char const * text, std::int32_t start, std::int32_t end)
{
    if (start == end) {
        return 0;
    }
    constexpr std::int64_t longest = 255;
    std::int64_t const length = end == -1 ? longest : std::int64_t{end} - std::int64_t{start};
    return careful_parser::parse_signed(
        text + start, static_cast<std::size_t>(std::clamp<std::int64_t>(length, 0, longest)),
        INT64_MAX);
}

} // namespace zel
