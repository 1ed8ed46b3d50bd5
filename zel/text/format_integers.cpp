// SPDX-License-Identifier: MIT
#include "zel/base/digits.h"
#include "zel/text/format_conversion.h"
#include <bit>

namespace zel::formatting {

void write_integer(collector & out, conversion const & read, std::uint64_t value,
                   char const * prefix, std::size_t prefix_size)
{
    unsigned int count = 0;
    unsigned int shift = 0;
    if (read.letter == 'x' || read.letter == 'X') {
        shift = 4;
    } else if (read.letter == 'o') {
        shift = 3;
    }
    if (value == 0 && read.precision == 0) {
        count = 0;
    } else if (shift != 0) {
        count = (static_cast<unsigned int>(std::bit_width(value | 1)) + shift - 1) / shift;
    } else {
        count = count_decimal_digits(value);
    }

    std::size_t zeros = read.precision > static_cast<int>(count)
        ? static_cast<unsigned int>(read.precision) - count
        : 0;
    if (read.letter == 'o' && read.alternate && zeros == 0 && (value != 0 || count == 0)) {
        zeros = 1; // the prefix of an octal number is a leading zero
    }
    std::size_t const body = prefix_size + zeros + count;
    std::size_t const padding = static_cast<std::size_t>(read.width) > body
        ? static_cast<std::size_t>(read.width) - body
        : 0;
    bool const pad_with_zeros = read.zero && !read.left && read.precision < 0;
    if (!read.left && !pad_with_zeros) {
        out.fill(' ', padding);
    }
    for (std::size_t i = 0; i < prefix_size; ++i) {
        out.put(prefix[i]);
    }
    out.fill('0', pad_with_zeros ? zeros + padding : zeros);

    char * const digits = out.reserve(32);
    if (count != 0) {
        if (shift == 0) {
            write_decimal(digits + count, value);
        } else {
            char const * const symbols = read.letter == 'X' ? capital_digits : small_digits;
            for (unsigned int i = count; i-- > 0; value >>= shift) {
                digits[i] = symbols[value & ((1U << shift) - 1)];
            }
        }
        out.advance(count);
    }
    if (read.left) {
        out.fill(' ', padding);
    }
}

} // namespace zel::formatting
