// SPDX-License-Identifier: MIT
#pragma once

#include "zel/text/format_collector.h"
#include <cstdarg>
#include <cstdint>

namespace zel::formatting {

/// The length modifier between the precision of a conversion and its letter.
enum class length_modifier : unsigned char { none, hh, h, l, ll, long_double, j, z, t };

/// One conversion, as read from the format.
struct conversion {
    bool left = false;
    bool plus = false;
    bool blank = false;
    bool alternate = false;
    bool zero = false;
    int width = 0;
    int precision = -1; // none
    length_modifier length = length_modifier::none;
    char letter = '\0';

    bool has_flags() const { return left || plus || blank || alternate || zero; }
};

/// The remaining arguments. The destructor calls `va_end`.
struct argument_list {
    explicit argument_list(std::va_list source) { va_copy(list, source); }
    argument_list(argument_list const &) = delete;
    argument_list & operator=(argument_list const &) = delete;
    ~argument_list() { va_end(list); }

    std::va_list list;
};

/// Reads a conversion, from the byte after its '%' to its letter. Anything but a plain conversion
/// gives a letter that no writer accepts.
/// \param arguments  the source of width and precision where the format has a star.
/// \returns the position behind the conversion.
char const * read_conversion(char const * p, conversion & read, argument_list & arguments);

/// Takes an integer of this length modifier from the arguments.
/// \returns false if the length modifier is not one for integers.
bool read_signed(argument_list & arguments, length_modifier length, std::int64_t & value);
bool read_unsigned(argument_list & arguments, length_modifier length, std::uint64_t & value);

/// Writes a conversion `d`, `i`, `u`, `x`, `X` or `o`: prefix, padding and digits.
/// \param prefix  a sign or "0x".
void write_integer(collector & out, conversion const & read, std::uint64_t value,
                   char const * prefix, std::size_t prefix_size);

/// Writes a conversion of a fractional number, which it takes from the arguments.
/// \returns false if the length modifier is not one for such numbers.
bool write_floating(collector & out, conversion const & read, argument_list & arguments);

/// Writes a text, padded to its width.
inline void write_text(collector & out, conversion const & read, char const * text,
                       std::size_t count)
{
    std::size_t const padding = static_cast<std::size_t>(read.width) > count
        ? static_cast<std::size_t>(read.width) - count
        : 0;
    if (!read.left) {
        out.fill(' ', padding);
    }
    out.append(text, count);
    if (read.left) {
        out.fill(' ', padding);
    }
}

/// Has the runtime write one conversion, with its flags, width and precision.
void write_by_runtime(collector & out, conversion const & read, int value);
void write_by_runtime(collector & out, conversion const & read, double value);
void write_by_runtime(collector & out, conversion const & read, long double value);
void write_by_runtime(collector & out, conversion const & read, char const * value);
void write_by_runtime(collector & out, conversion const & read, void const * value);

} // namespace zel::formatting
