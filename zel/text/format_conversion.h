// SPDX-License-Identifier: MIT
#pragma once

#include "zel/text/format_collector.h"
#include <cstdarg>
#include <cstdint>

namespace zel::formatting {

/// What stands between the precision of a conversion and its letter.
enum class length_modifier : unsigned char { none, hh, h, l, ll, long_double, j, z, t };

/// One conversion as it was read from the format.
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

/// The arguments that are left, ended at the end of its life.
struct argument_list {
    explicit argument_list(std::va_list source) { va_copy(list, source); }
    argument_list(argument_list const &) = delete;
    argument_list & operator=(argument_list const &) = delete;
    ~argument_list() { va_end(list); }

    std::va_list list;
};

/// Reads a conversion from behind its '%' to behind its letter. What is no plain conversion shows as
/// a letter that none of the writers takes.
/// \param arguments  give width and precision where the format has a star.
/// \returns the place behind it.
char const * read_conversion(char const * p, conversion & read, argument_list & arguments);

/// Takes an integer of the conversion's width from the arguments.
/// \returns false where the length modifier is none of an integer.
bool read_signed(argument_list & arguments, length_modifier length, std::int64_t & value);
bool read_unsigned(argument_list & arguments, length_modifier length, std::uint64_t & value);

/// Writes the digits of a conversion `d`, `i`, `u`, `x`, `X` or `o` with what belongs in front.
/// \param prefix  a sign or "0x".
void write_integer(collector & out, conversion const & read, std::uint64_t value,
                   char const * prefix, std::size_t prefix_size);

/// Writes a conversion of a fractional number, taken from the arguments.
/// \returns false where the length modifier is none of such a number.
bool write_floating(collector & out, conversion const & read, argument_list & arguments);

/// A text in its width.
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

/// Leaves one conversion to the runtime, with flags, width and precision as it has them.
void write_by_runtime(collector & out, conversion const & read, int value);
void write_by_runtime(collector & out, conversion const & read, double value);
void write_by_runtime(collector & out, conversion const & read, long double value);
void write_by_runtime(collector & out, conversion const & read, char const * value);
void write_by_runtime(collector & out, conversion const & read, void const * value);

} // namespace zel::formatting
