// SPDX-License-Identifier: MIT
#include "zel/base/digits.h"
#include "zel/platform/host/locale.h"
#include "zel/text/format_conversion.h"
#include "zel/text/rounded_decimal.h"
#include <algorithm>
#include <cfenv>
#include <charconv>
#include <cmath>
#include <cstring>

namespace zel::formatting {
namespace {

constexpr int most_digits = 17; // limit of the fast path, after the point or in total

class text_writer {
public:
    explicit text_writer(char * to)
        : end_(to)
    {
    }

    void put(char c) { *end_++ = c; }
    void put(char const * text, int size)
    {
        std::memcpy(end_, text, static_cast<std::size_t>(size));
        end_ += size;
    }
    void put_number(std::uint64_t value) { put_digits(value, count_decimal_digits(value)); }
    // Pads with leading zeros.
    void put_digits(std::uint64_t value, unsigned int count)
    {
        char * const first = end_;
        end_ += count;
        char * const begin = write_decimal(end_, value);
        std::memset(first, '0', static_cast<std::size_t>(begin - first));
    }
    char * end() const { return end_; }

private:
    char * end_;
};

// A digit, a point with the others behind it, and an exponent of at least two digits.
void write_scientific(text_writer & to, char const * digits, int count, int exponent, char letter)
{
    to.put(digits[0]);
    if (count > 1) {
        to.put('.');
        to.put(digits + 1, count - 1);
    }
    to.put(letter);
    to.put(exponent < 0 ? '-' : '+');
    auto const magnitude = static_cast<unsigned int>(exponent < 0 ? -exponent : exponent);
    to.put_digits(magnitude, magnitude < 100 ? 2 : 3);
}

// "%g": without trailing zeros, and with an exponent where that is shorter.
void write_general(text_writer & to, char const * digits, int precision, int exponent, char letter)
{
    int count = precision;
    while (count > 1 && digits[count - 1] == '0') {
        --count;
    }
    if (exponent < -4 || exponent >= precision) {
        write_scientific(to, digits, count, exponent, letter);
    } else if (exponent < 0) {
        to.put("0.000", 1 - exponent);
        to.put(digits, count);
    } else {
        int const whole = exponent + 1; // the digits array still has the trailing zeros
        to.put(digits, whole);
        if (count > whole) {
            to.put('.');
            to.put(digits + whole, count - whole);
        }
    }
}

// "%f".
bool write_fixed(text_writer & to, double value, int places)
{
    uint128 whole = 0;
    std::uint64_t fraction = 0;
    if (!round_to_places(value, places, whole, fraction)) {
        return false;
    }
    constexpr std::uint64_t in_a_word = powers_of_ten[19];
    if (whole < in_a_word) {
        to.put_number(static_cast<std::uint64_t>(whole));
    } else { // up to 39 digits
        uint128 const front = whole / in_a_word;
        if (front >= in_a_word) {
            to.put_number(static_cast<std::uint64_t>(front / in_a_word));
            to.put_digits(static_cast<std::uint64_t>(front % in_a_word), 19);
        } else {
            to.put_number(static_cast<std::uint64_t>(front));
        }
        to.put_digits(static_cast<std::uint64_t>(whole % in_a_word), 19);
    }
    if (places > 0) {
        to.put('.');
        to.put_digits(fraction, static_cast<unsigned int>(places));
    }
    return true;
}

// The fast path, for nearly all values with up to 17 digits: exact integers.
bool write_shortly(collector & out, conversion const & read, double value)
{
    char text[80]; // a sign, 39 digits, the point, 17 digits
    text_writer to(text);
    if (std::signbit(value)) {
        to.put('-');
    }
    int const precision = read.precision < 0 ? 6 : read.precision;
    char const small_letter = static_cast<char>(read.letter | 0x20);
    if (small_letter == 'f') {
        if (precision > most_digits || !write_fixed(to, value, precision)) {
            return false;
        }
    } else {
        int const count = small_letter == 'g' ? std::max(precision, 1) : precision + 1;
        std::uint64_t number = 0;
        int exponent = 0;
        if (count > most_digits
            || (value != 0 && !round_to_digits(value, count, number, exponent))) {
            return false;
        }
        char digits[most_digits];
        text_writer(digits).put_digits(number, static_cast<unsigned int>(count));
        char const letter = static_cast<char>(read.letter - small_letter + 'e');
        if (small_letter == 'g') {
            write_general(to, digits, count, exponent, letter);
        } else {
            write_scientific(to, digits, count, exponent, letter);
        }
    }
    write_text(out, read, text, static_cast<std::size_t>(to.end() - text));
    return true;
}

} // namespace

bool write_floating(collector & out, conversion const & read, argument_list & arguments)
{
    if (read.length == length_modifier::long_double) {
        write_by_runtime(out, read, va_arg(arguments.list, long double));
        return true;
    }
    if (read.length != length_modifier::none && read.length != length_modifier::l) {
        return false;
    }
    double const value = va_arg(arguments.list, double);
    bool const decimal = read.letter != 'a' && read.letter != 'A';
    bool const plain = decimal && !(read.plus || read.blank || read.alternate || read.zero)
        && std::isfinite(value) && std::fegetround() == FE_TONEAREST
        && platform::decimal_point_is_period();
    if (plain && write_shortly(out, read, value)) {
        return true;
    }
    if (plain && (read.letter == 'g' || read.letter == 'e') && read.precision < 64) {
        char digits[128]; // sign, 64 digits, point, four zeros in front or an exponent
        auto const end = std::to_chars(digits, digits + sizeof(digits), value,
                                       read.letter == 'g' ? std::chars_format::general
                                                          : std::chars_format::scientific,
                                       read.precision < 0 ? 6 : read.precision);
        write_text(out, read, digits, static_cast<std::size_t>(end.ptr - digits));
    } else {
        write_by_runtime(out, read, value);
    }
    return true;
}

} // namespace zel::formatting
