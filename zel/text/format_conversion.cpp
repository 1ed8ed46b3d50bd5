// SPDX-License-Identifier: MIT
#include "zel/text/format_conversion.h"

namespace zel::formatting {
namespace {

// Reads digits up to the first other byte. A number that exceeds an int counts as a text that is
// too long.
int read_number(char const *& p)
{
    std::uint64_t number = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        number = number * 10 + static_cast<std::uint64_t>(*p - '0');
        if (number > longest_text) {
            raise_too_long();
        }
    }
    return static_cast<int>(number);
}

} // namespace

char const * read_conversion(char const * p, conversion & read, argument_list & arguments)
{
    for (;; ++p) {
        switch (*p) {
        case '-':
            read.left = true;
            continue;
        case '+':
            read.plus = true;
            continue;
        case ' ':
            read.blank = true;
            continue;
        case '#':
            read.alternate = true;
            continue;
        case '0':
            read.zero = true;
            continue;
        default:
            break;
        }
        break;
    }
    if (*p == '*') {
        ++p;
        read.width = va_arg(arguments.list, int);
        if (read.width < 0) {
            if (read.width < -static_cast<int>(longest_text)) {
                raise_too_long();
            }
            read.left = true;
            read.width = -read.width;
        }
    } else {
        read.width = read_number(p);
    }
    if (*p == '.') {
        ++p;
        if (*p == '*') {
            ++p;
            read.precision = va_arg(arguments.list, int);
            if (read.precision < 0) {
                read.precision = -1;
            }
        } else {
            read.precision = read_number(p);
        }
    }
    switch (*p) {
    case 'h':
        read.length = p[1] == 'h' ? length_modifier::hh : length_modifier::h;
        break;
    case 'l':
        read.length = p[1] == 'l' ? length_modifier::ll : length_modifier::l;
        break;
    case 'L':
        read.length = length_modifier::long_double;
        break;
    case 'j':
        read.length = length_modifier::j;
        break;
    case 'z':
        read.length = length_modifier::z;
        break;
    case 't':
        read.length = length_modifier::t;
        break;
    default:
        break;
    }
    if (read.length != length_modifier::none) {
        bool const two = read.length == length_modifier::hh || read.length == length_modifier::ll;
        p += two ? 2 : 1;
    }
    read.letter = *p;
    return *p == '\0' ? p : p + 1;
}

bool read_signed(argument_list & arguments, length_modifier length, std::int64_t & value)
{
    switch (length) {
    case length_modifier::none:
        value = va_arg(arguments.list, int);
        return true;
    case length_modifier::hh:
        value = static_cast<signed char>(va_arg(arguments.list, int));
        return true;
    case length_modifier::h:
        value = static_cast<short>(va_arg(arguments.list, int));
        return true;
    case length_modifier::l:
    case length_modifier::ll:
    case length_modifier::j:
    case length_modifier::z:
    case length_modifier::t:
        static_assert(sizeof(long) == 8 && sizeof(std::size_t) == 8);
        value = va_arg(arguments.list, std::int64_t);
        return true;
    default:
        return false;
    }
}

bool read_unsigned(argument_list & arguments, length_modifier length, std::uint64_t & value)
{
    std::int64_t raw = 0;
    if (!read_signed(arguments, length, raw)) {
        return false;
    }
    value = static_cast<std::uint64_t>(raw);
    switch (length) {
    case length_modifier::none:
        value = static_cast<std::uint32_t>(value);
        break;
    case length_modifier::hh:
        value = static_cast<std::uint8_t>(value);
        break;
    case length_modifier::h:
        value = static_cast<std::uint16_t>(value);
        break;
    default:
        break;
    }
    return true;
}

} // namespace zel::formatting
