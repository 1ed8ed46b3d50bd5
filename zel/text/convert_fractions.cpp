// SPDX-License-Identifier: MIT
#include "zel/base/digit_run.h"
#include "zel/text/careful_parser.h"
#include "zel/text/convert.h"
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <type_traits>

// The members of `convert` that read and compose fractional numbers.

namespace zel {
namespace {

using careful_parser::refuse;
using careful_parser::refuse_symbol;
using careful_parser::with_sign;
using failure = convert::exception;

double scale(double value, std::int64_t exponent)
{
    bool const divide = exponent < 0;
    std::uint64_t const steps
        = divide ? 0 - static_cast<std::uint64_t>(exponent) : static_cast<std::uint64_t>(exponent);
    for (std::uint64_t i = 0; i < steps; ++i) {
        double const next = divide ? value / 10.0 : value * 10.0;
        if (std::bit_cast<std::uint64_t>(next) == std::bit_cast<std::uint64_t>(value)) {
            break;
        }
        value = next;
    }
    return value;
}

// A power of 10 computed by repeated squaring, which is not always the nearest double.
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

/// \param exponent  at least -largest_exponent; a power that is too large gives infinity.
double power_of_10(std::int64_t exponent)
{
    if (exponent > largest_exponent) {
        return std::numeric_limits<double>::infinity();
    }
    return exponent < 0 ? 1.0 / powers[static_cast<std::size_t>(-exponent)]
                        : powers[static_cast<std::size_t>(exponent)];
}

/// Multiplies a mantissa by 10^308, for a result not above the largest number, and rounds once. The
/// power by squaring is three units of its last place too large; with it the largest numbers would
/// overflow.
double times_largest_power(double mantissa)
{
    // 10^308 as its nearest double and the difference to it, both divided by four so that no
    // product overflows.
    constexpr double power = 1e308 / 4;
    constexpr double rest = -1.0979063629440455e291 / 4;
    double const product = mantissa * power;
    double const rounding = std::fma(mantissa, power, -product);
    return (product + (rounding + mantissa * rest)) * 4;
}

double absolute(std::int64_t value)
{
    return static_cast<double>(value < 0 ? 0 - static_cast<std::uint64_t>(value)
                                         : static_cast<std::uint64_t>(value));
}

constexpr std::int64_t lowest_decade = -19;
constexpr auto decades = [] {
    std::array<double, 38> table{};
    for (int i = 0; i < 38; ++i) {
        std::int64_t const exponent = i + lowest_decade;
        table[static_cast<std::size_t>(i)] = exponent < 0
            ? 1.0 / power_by_squaring(static_cast<unsigned>(-exponent))
            : power_by_squaring(static_cast<unsigned>(exponent));
    }
    return table;
}();

/// True if the decimal logarithm of a number is certainly between `exponent` and the next integer,
/// far enough from both that rounding does not matter.
bool lies_inside_decade(double magnitude, std::int64_t exponent)
{
    constexpr double margin = 1e-13;
    auto const i = static_cast<std::uint64_t>(exponent) - static_cast<std::uint64_t>(lowest_decade);
    return i < decades.size() - 1 && magnitude > decades[i] * (1 + margin)
        && magnitude < decades[i + 1] * (1 - margin);
}

/// The floor of the decimal logarithm, as the mathematics library rounds the logarithm: just below
/// a power of 10 it can round up to the integer.
/// \param magnitude  positive and finite.
int decimal_exponent(double magnitude)
{
    if (magnitude == 1.0) {
        return 0;
    }
    // Most numbers are so far from a power of 10 that the logarithm need not be computed.
    int const binary = static_cast<int>(std::bit_cast<std::uint64_t>(magnitude) >> 52) - 1023;
    int const guess = binary * 1233 >> 12; // 1233 / 4096 is a little more than log10(2)
    for (int const exponent : {guess, guess + 1}) {
        if (lies_inside_decade(magnitude, exponent)) {
            return exponent;
        }
    }
    return static_cast<int>(std::floor(std::log10(magnitude)));
}

struct float_rules {
    static constexpr int largest_exponent = 38;
    static constexpr double largest_mantissa = 3.402823466;
    static constexpr double smallest_mantissa = 1.175494351;

    static double mantissa(double magnitude, std::int64_t exponent)
    {
        return magnitude * power_of_10(-exponent);
    }
};

struct double_rules {
    static constexpr int largest_exponent = 308;
    static constexpr double largest_mantissa = 1.7976931348623157;
    static constexpr double smallest_mantissa = 2.2250738585072014;

    static double mantissa(double magnitude, std::int64_t exponent)
    {
        return scale(magnitude, -exponent);
    }
};

/// The exponents of a number other than 0 in scientific notation.
struct scientific {
    std::int64_t shift; // the decimal exponent of its magnitude alone
    std::int64_t exponent; // the decimal exponent of the whole number
};

/// \param guess  the likely decimal exponent of the magnitude. It is known from the digits of a
///               text, so the processor can go on before the magnitude is computed.
template <typename rules>
scientific check_limits(double magnitude, std::int64_t given_exponent, std::int64_t guess)
{
    if (!(magnitude > 0.0 && magnitude <= std::numeric_limits<double>::max())) {
        refuse(failure::out_of_range, -1);
    }
    std::int64_t const shift
        = lies_inside_decade(magnitude, guess) ? guess : decimal_exponent(magnitude);
    std::int64_t const exponent = std::int64_t{static_cast<std::int32_t>(given_exponent)} + shift;
    // Check the exponent first: only a small one may index the powers or count steps.
    if (exponent > rules::largest_exponent || exponent < -rules::largest_exponent
        || (exponent == rules::largest_exponent
            && rules::mantissa(magnitude, shift) > rules::largest_mantissa)
        || (exponent == -rules::largest_exponent
            && rules::mantissa(magnitude, shift) < rules::smallest_mantissa)) {
        refuse(failure::out_of_range, -1);
    }
    return {shift, exponent};
}

constexpr std::int64_t no_guess = INT64_MAX;

template <typename rules>
double compose(std::int64_t integer_part, double fraction, std::int64_t exponent,
               std::int64_t guess = no_guess)
{
    double const sign = integer_part < 0 ? -1.0 : 1.0;
    double const magnitude = absolute(integer_part) + fraction;
    if (magnitude == 0.0) {
        return 0.0 * sign;
    }
    scientific const number = check_limits<rules>(magnitude, exponent, guess);
    double const mantissa = scale(magnitude, -number.shift);
    double const result = power_of_10(number.exponent) * (mantissa * sign);
    return std::isinf(result) ? sign * times_largest_power(mantissa) : result;
}

std::int64_t parse_piece(char const * piece, std::size_t length = SIZE_MAX)
{
    return careful_parser::parse_signed(piece, length, INT64_MAX);
}

/// A part that is followed by another one may be empty.
std::int64_t parse_inner_piece(char const * first, char const * last)
{
    return first == last ? 0 : parse_piece(first, static_cast<std::size_t>(last - first));
}

/// Composes a number from the parts of a text. It refuses an exponent beyond 32 bits itself: the
/// check of the limits would take it modulo 2^32.
template <typename number>
number compose_parsed(std::int64_t integer_part, std::int64_t digits, std::size_t count,
                      std::int64_t exponent)
{
    using rules = std::conditional_t<std::is_same_v<number, float>, float_rules, double_rules>;
    if (exponent != static_cast<std::int32_t>(exponent) && (integer_part | digits) != 0) {
        refuse(failure::out_of_range, -1);
    }
    double fraction = scale(static_cast<double>(digits), -static_cast<std::int64_t>(count));
    auto const whole = static_cast<std::uint64_t>(integer_part);
    std::int64_t const guess = integer_part != 0
        ? count_decimal_digits(integer_part < 0 ? 0 - whole : whole) - 1
        : std::int64_t{count_decimal_digits(static_cast<std::uint64_t>(digits))}
            - static_cast<std::int64_t>(count) - 1;
    if (exponent == rules::largest_exponent - guess && count < powers_of_ten.size()
        && rules::mantissa(absolute(integer_part) + fraction, guess) > rules::largest_mantissa) {
        // The steps may have rounded the largest number up beyond the limit. A single division does
        // not.
        fraction = static_cast<double>(digits) / static_cast<double>(powers_of_ten[count]);
    }
    return static_cast<number>(compose<rules>(integer_part, fraction, exponent, guess));
}

template <typename number> number parse_fractional_carefully(char const * text)
{
    char const * const point = std::strchr(text, '.');
    char const * const letter = std::strpbrk(text, "eEdD");
    number result;
    if (point == nullptr && letter == nullptr) {
        result = static_cast<number>(parse_piece(text));
    } else {
        if (point != nullptr && letter != nullptr && letter < point) {
            parse_piece(letter + 1); // always raises, at the latest at the point
        }
        std::int64_t const integer_part
            = parse_inner_piece(text, point != nullptr ? point : letter);
        std::int64_t digits = 0;
        std::size_t count = 0;
        if (point != nullptr) {
            char const * const first = point + 1;
            digits = letter != nullptr ? parse_inner_piece(first, letter) : parse_piece(first);
            if (digits < 0) {
                refuse_symbol(first - text, '-');
            }
            count
                = letter != nullptr ? static_cast<std::size_t>(letter - first) : std::strlen(first);
        }
        std::int64_t const exponent = letter != nullptr ? parse_piece(letter + 1) : 0;
        result = compose_parsed<number>(integer_part, digits, count, exponent);
    }
    return *text == '-' && !(result < 0) ? -result : result;
}

template <typename number> number parse_fractional(char const * text)
{
    constexpr std::size_t most_digits = 18; // fit a signed number too
    auto const is_plain = [](digit_run run) { return run.count >= 1 && run.count <= most_digits; };
    bool const negative = *text == '-';
    char const * p = text + (negative || *text == '+' ? 1 : 0);

    digit_run const whole = read_digit_run(p);
    if (!is_plain(whole)) {
        return parse_fractional_carefully<number>(text);
    }
    p += whole.count;
    std::int64_t const integer_part = with_sign(negative, whole.value);
    number result;
    if (*p == '\0') {
        result = static_cast<number>(integer_part);
    } else {
        digit_run fraction{0, 0};
        if (*p == '.') {
            fraction = read_digit_run(++p);
            if (!is_plain(fraction)) {
                return parse_fractional_carefully<number>(text);
            }
            p += fraction.count;
        }
        std::int64_t exponent = 0;
        if (char const letter = static_cast<char>(*p | 0x20); letter == 'e' || letter == 'd') {
            ++p;
            bool const below = *p == '-';
            p += below || *p == '+' ? 1 : 0;
            digit_run const run = read_digit_run(p);
            if (!is_plain(run)) {
                return parse_fractional_carefully<number>(text);
            }
            p += run.count;
            exponent = with_sign(below, run.value);
        }
        if (*p != '\0') {
            return parse_fractional_carefully<number>(text);
        }
        result = compose_parsed<number>(integer_part, static_cast<std::int64_t>(fraction.value),
                                        fraction.count, exponent);
    }
    return negative && !(result < 0) ? -result : result;
}

} // namespace

float convert::stringToFloat(char const * text) { return parse_fractional<float>(text); }
double convert::stringToDouble(char const * text) { return parse_fractional<double>(text); }

double convert::mulPow10(double value, std::int64_t exponent) noexcept
{
    return scale(value, exponent);
}

void convert::checkFloatLimits(std::int64_t integer_part, double fraction, std::int64_t exponent)
{
    if (double const magnitude = absolute(integer_part) + fraction; magnitude != 0.0) {
        check_limits<float_rules>(magnitude, exponent, no_guess);
    }
}

void convert::checkDoubleLimits(std::int64_t integer_part, double fraction, std::int64_t exponent)
{
    if (double const magnitude = absolute(integer_part) + fraction; magnitude != 0.0) {
        check_limits<double_rules>(magnitude, exponent, no_guess);
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
