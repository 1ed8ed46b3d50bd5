// SPDX-License-Identifier: MIT
#include "zel/text/convert.h"

#include "zel/base/digits.h"
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

namespace zel {
namespace {

using failure = convert::exception;

constexpr char const * reasons[] = {
    "Zel Conversion Exception: Data convert error",
    "Zel Conversion Exception: out of range",
    "Zel Conversion Exception: wrong symbol",
    "Zel Conversion Exception: unexpected end",
};

[[noreturn, gnu::cold, gnu::noinline]] void refuse(failure::exc_type type, std::ptrdiff_t position)
{
    throw failure(type, static_cast<std::int32_t>(position), nullptr);
}

[[noreturn, gnu::cold, gnu::noinline]] void refuse_symbol(std::ptrdiff_t position, char symbol)
{
    throw failure(failure::wrong_symbol, static_cast<std::int32_t>(position), symbol, nullptr);
}

// Every parser reads a good text in one plain loop and looks at the result afterwards. Whatever is
// not plainly good goes to its careful twin, which reads again from the start, digit by digit, and
// finds the failure that comes first.

std::uint64_t limit_of(bool negative, std::uint64_t largest)
{
    return largest + (negative ? 1 : 0);
}

std::int64_t with_sign(bool negative, std::uint64_t magnitude)
{
    return static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude);
}

/// \param length  of the text at most; it may end earlier with a NUL.
[[gnu::noinline]] std::int64_t parse_signed_carefully(char const * text, std::size_t length,
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

template <typename integer> integer parse_signed(char const * text)
{
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<integer>::max());
    char const * p = text;
    bool const negative = *p == '-';
    p += negative || *p == '+' ? 1 : 0;
    char const * const first = p;
    std::uint64_t magnitude = 0;
    for (unsigned digit; (digit = decimal_digit(*p)) <= 9; ++p) {
        magnitude = magnitude * 10 + digit; // wraps behind safe_digits, which is looked at below
    }
    std::ptrdiff_t const count = p - first;
    if (*p == '\0' && count >= 1 && count <= std::ptrdiff_t{safe_digits}
        && magnitude <= limit_of(negative, largest)) [[likely]] {
        return static_cast<integer>(with_sign(negative, magnitude));
    }
    return static_cast<integer>(parse_signed_carefully(text, SIZE_MAX, largest));
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
    bool too_long = false; // the hexadecimal value has lost digits, which matters once it counts
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
    char const * p = text;
    std::uint64_t decimal_value = 0;
    std::uint64_t hexadecimal_value = 0;
    for (unsigned digit; (digit = decimal_digit(*p)) <= 9; ++p) {
        decimal_value = decimal_value * 10 + digit;
        hexadecimal_value = hexadecimal_value << 4 | digit;
    }
    std::ptrdiff_t const decimal_count = p - text;
    if (*p == '\0') [[likely]] {
        if (decimal_count >= 1 && decimal_count <= std::ptrdiff_t{safe_digits}
            && decimal_value <= limit) [[likely]] {
            return static_cast<integer>(decimal_value);
        }
    } else {
        // What stands in front of a letter had to fit as a decimal number.
        char const * first = text;
        bool good = decimal_count <= std::ptrdiff_t{safe_digits} && decimal_value <= limit;
        if (decimal_count == 1 && has_prefix(text)) {
            first = p += 1;
        }
        for (unsigned digit; (digit = hexadecimal_digit(*p)) != no_digit; ++p) {
            hexadecimal_value = hexadecimal_value << 4 | digit;
        }
        good = good && *p == '\0' && p != first && p - first <= 16 && hexadecimal_value <= limit;
        if (good) [[likely]] {
            return static_cast<integer>(hexadecimal_value);
        }
    }
    return static_cast<integer>(parse_unsigned_carefully(text, limit));
}

// A power of 10 as it comes out of repeated squaring, which is not always the nearest number.
constexpr double power_by_squaring(unsigned exponent)
{
    double power = 1.0;
    for (double square = 10.0;; square *= square) {
        if ((exponent & 1) != 0) {
            power *= square;
        }
        exponent >>= 1;
        if (exponent == 0) {
            return power;
        }
    }
}

constexpr int largest_exponent = std::numeric_limits<double>::max_exponent10;

constexpr auto powers = [] {
    std::array<double, largest_exponent + 1> table{};
    for (unsigned i = 0; i < table.size(); ++i) {
        table[i] = power_by_squaring(i);
    }
    return table;
}();

/// \param exponent  not below -largest_exponent; too large a power is infinity.
double power_of_10(std::int64_t exponent)
{
    if (exponent > largest_exponent) {
        return std::numeric_limits<double>::infinity();
    }
    return exponent < 0 ? 1.0 / powers[static_cast<std::size_t>(-exponent)]
                        : powers[static_cast<std::size_t>(exponent)];
}

double absolute(std::int64_t value)
{
    return static_cast<double>(value < 0 ? 0 - static_cast<std::uint64_t>(value)
                                         : static_cast<std::uint64_t>(value));
}

/// The floor of the decimal logarithm as the mathematics library rounds it: just below a power of
/// 10 the logarithm can come out as the whole number.
/// \param magnitude  positive and finite.
int decimal_exponent(double magnitude)
{
    // Most numbers lie so far from the powers of 10 that the logarithm need not be taken.
    constexpr double margin = 1e-13;
    constexpr std::array<double, 19> bounds
        = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8, 1e9,
           1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18};
    if (magnitude >= 1.0 && magnitude < 1e18) {
        int const binary = static_cast<int>(std::bit_cast<std::uint64_t>(magnitude) >> 52) - 1023;
        int exponent = binary * 1233 >> 12; // 1233 / 4096 is a little more than log10(2)
        exponent += magnitude >= bounds[static_cast<std::size_t>(exponent) + 1] ? 1 : 0;
        auto const i = static_cast<std::size_t>(exponent);
        if (magnitude == 1.0
            || (magnitude > bounds[i] * (1 + margin) && magnitude < bounds[i + 1] * (1 - margin)))
            [[likely]] {
            return exponent;
        }
    } else if (magnitude < 1.0 * (1 - margin) && magnitude > 0.1 * (1 + margin)) {
        return -1;
    }
    return static_cast<int>(std::floor(std::log10(magnitude)));
}

struct float_rules {
    static constexpr int largest_exponent = 38;
    static constexpr double largest_mantissa = 3.402823466;
    static constexpr double smallest_mantissa = 1.175494351;

    static double mantissa(double magnitude, int exponent)
    {
        return magnitude * power_of_10(-exponent);
    }
};

struct double_rules {
    static constexpr int largest_exponent = 308;
    static constexpr double largest_mantissa = 1.7976931348623157;
    static constexpr double smallest_mantissa = 2.2250738585072014;

    static double mantissa(double magnitude, int exponent)
    {
        return convert::mulPow10(magnitude, -exponent);
    }
};

/// A number that is not 0 in scientific notation.
struct scientific {
    int shift; // the decimal exponent of its magnitude alone
    std::int64_t exponent; // that of the whole number
};

template <typename rules> scientific check_limits(double magnitude, std::int64_t given_exponent)
{
    if (!(magnitude > 0.0 && magnitude <= std::numeric_limits<double>::max())) {
        refuse(failure::out_of_range, -1);
    }
    int const shift = decimal_exponent(magnitude);
    std::int64_t const exponent = std::int64_t{static_cast<std::int32_t>(given_exponent)} + shift;
    // The exponent is refused first: only a small one may index the powers or count steps.
    if (exponent > rules::largest_exponent || exponent < -rules::largest_exponent
        || (exponent == rules::largest_exponent
            && rules::mantissa(magnitude, shift) > rules::largest_mantissa)
        || (exponent == -rules::largest_exponent
            && rules::mantissa(magnitude, shift) < rules::smallest_mantissa)) {
        refuse(failure::out_of_range, -1);
    }
    return {shift, exponent};
}

template <typename rules>
double compose(std::int64_t integer_part, double fraction, std::int64_t exponent)
{
    double const sign = integer_part < 0 ? -1.0 : 1.0;
    double const magnitude = absolute(integer_part) + fraction;
    if (magnitude == 0.0) {
        return 0.0 * sign;
    }
    scientific const number = check_limits<rules>(magnitude, exponent);
    double const mantissa = convert::mulPow10(magnitude, -number.shift);
    double const result = power_of_10(number.exponent) * (mantissa * sign);
    // The largest powers come out a little too large: a number that just passes can overflow here.
    if (std::abs(result) > std::numeric_limits<double>::max()) {
        refuse(failure::out_of_range, -1);
    }
    return result;
}

template <typename number> struct rules_of;
template <> struct rules_of<float> {
    using type = float_rules;
};
template <> struct rules_of<double> {
    using type = double_rules;
};

constexpr std::size_t piece_limit = 255;

std::int64_t parse_piece(char const * piece, std::size_t length)
{
    return parse_signed_carefully(piece, std::min(length, piece_limit), INT64_MAX);
}

std::int64_t parse_inner_piece(char const * first, char const * last)
{
    return first == last ? 0 : parse_piece(first, static_cast<std::size_t>(last - first));
}

double fraction_of(std::int64_t digits, std::ptrdiff_t count)
{
    return convert::mulPow10(static_cast<double>(digits), -std::int64_t{count});
}

template <typename number> number parse_fractional_carefully(char const * text)
{
    using rules = typename rules_of<number>::type;
    char const * const point = std::strchr(text, '.');
    char const * const letter = std::strpbrk(text, "eEdD");
    number result;
    if (point == nullptr && letter == nullptr) {
        result = static_cast<number>(parse_signed_carefully(text, SIZE_MAX, INT64_MAX));
    } else {
        std::int64_t integer_part = 0;
        double fraction = 0.0;
        std::int64_t exponent = 0;
        if (point != nullptr && letter != nullptr && letter < point) {
            parse_piece(letter + 1, SIZE_MAX);
            refuse_symbol(point - text, *point); // so far behind that the piece was cut before it
        }
        integer_part = parse_inner_piece(text, point != nullptr ? point : letter);
        if (point != nullptr) {
            std::int64_t const digits = letter != nullptr ? parse_inner_piece(point + 1, letter)
                                                          : parse_piece(point + 1, SIZE_MAX);
            if (digits < 0) {
                refuse_symbol(point + 1 - text, '-');
            }
            char const * const end = letter != nullptr ? letter : point + std::strlen(point);
            fraction = fraction_of(digits, end - point - 1);
        }
        if (letter != nullptr) {
            exponent = parse_piece(letter + 1, SIZE_MAX);
        }
        result = static_cast<number>(compose<rules>(integer_part, fraction, exponent));
    }
    return *text == '-' && !(result < 0) ? -result : result;
}

template <typename number> number parse_fractional(char const * text)
{
    using rules = typename rules_of<number>::type;
    constexpr std::ptrdiff_t most_digits = 18; // fit a signed number too
    char const * p = text;
    bool const negative = *p == '-';
    p += negative || *p == '+' ? 1 : 0;

    auto const read_digits = [&p](std::uint64_t & value) {
        char const * const first = p;
        for (unsigned digit; (digit = decimal_digit(*p)) <= 9; ++p) {
            value = value * 10 + digit;
        }
        return p - first;
    };
    auto const plain = [](std::ptrdiff_t count) { return count >= 1 && count <= most_digits; };

    std::uint64_t magnitude = 0;
    if (!plain(read_digits(magnitude))) {
        return parse_fractional_carefully<number>(text);
    }
    std::int64_t const integer_part = with_sign(negative, magnitude);
    number result;
    if (*p == '\0') {
        result = static_cast<number>(integer_part);
    } else {
        std::uint64_t digits = 0;
        std::ptrdiff_t count = 0;
        if (*p == '.') {
            ++p;
            count = read_digits(digits);
            if (!plain(count)) {
                return parse_fractional_carefully<number>(text);
            }
        }
        std::uint64_t exponent = 0;
        bool negative_exponent = false;
        if (char const letter = static_cast<char>(*p | 0x20); letter == 'e' || letter == 'd') {
            ++p;
            negative_exponent = *p == '-';
            p += negative_exponent || *p == '+' ? 1 : 0;
            if (!plain(read_digits(exponent))) {
                return parse_fractional_carefully<number>(text);
            }
        }
        if (*p != '\0') {
            return parse_fractional_carefully<number>(text);
        }
        double const fraction = fraction_of(static_cast<std::int64_t>(digits), count);
        result = static_cast<number>(
            compose<rules>(integer_part, fraction, with_sign(negative_exponent, exponent)));
    }
    return negative && !(result < 0) ? -result : result;
}

} // namespace

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

float convert::stringToFloat(char const * text) { return parse_fractional<float>(text); }
double convert::stringToDouble(char const * text) { return parse_fractional<double>(text); }

std::int64_t convert::getIntFromString(char const * text, std::int32_t start, std::int32_t end)
{
    if (start == end) {
        return 0;
    }
    std::int64_t const length
        = end == -1 ? std::int64_t{piece_limit} : std::int64_t{end} - std::int64_t{start};
    return parse_piece(text + start, static_cast<std::size_t>(std::max<std::int64_t>(length, 0)));
}

double convert::mulPow10(double value, std::int64_t exponent) noexcept
{
    bool const divide = exponent < 0;
    std::uint64_t const steps
        = divide ? 0 - static_cast<std::uint64_t>(exponent) : static_cast<std::uint64_t>(exponent);
    for (std::uint64_t i = 0; i < steps; ++i) {
        double const next = divide ? value / 10.0 : value * 10.0;
        if (dblToui64(next) == dblToui64(value)) {
            break;
        }
        value = next;
    }
    return value;
}

void convert::checkFloatLimits(std::int64_t integer_part, double fraction, std::int64_t exponent)
{
    if (double const magnitude = absolute(integer_part) + fraction; magnitude != 0.0) {
        check_limits<float_rules>(magnitude, exponent);
    }
}

void convert::checkDoubleLimits(std::int64_t integer_part, double fraction, std::int64_t exponent)
{
    if (double const magnitude = absolute(integer_part) + fraction; magnitude != 0.0) {
        check_limits<double_rules>(magnitude, exponent);
    }
}

float convert::composeFloat(std::int64_t integer_part, double fraction, std::int64_t exponent)
{
    return static_cast<float>(compose<float_rules>(integer_part, fraction, exponent));
}

double convert::composeDouble(std::int64_t integer_part, double fraction, std::int64_t exponent)
{
    return compose<double_rules>(integer_part, fraction, exponent);
}

} // namespace zel
