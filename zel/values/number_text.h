// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Conversion between numbers and texts for `variant`: each type of number has its own grammar. No
/// locale and no allocation. Failures are results, not exceptions, because `check_conversion` often
/// fails. Texts end at their NUL.
namespace zel::number_text {

enum class outcome : unsigned char {
    done,
    no_number,
    out_of_range,
};

/// "true", "1", "false" or "0" in any case of letters, and nothing else.
outcome read_bool(char const * text, bool & result) noexcept;

/// What `strtol` with base 0 reads, where a `long` has 32 bits: blanks, a sign, a prefix that gives
/// the base, digits. The rest is ignored.
outcome read_any_base(char const * text, std::int32_t & result) noexcept;

/// Decimal digits after an optional sign; the whole text. A number beyond 32 bits is no number.
/// \param text  followed by a NUL; may also end earlier with one.
outcome read_signed(std::string_view text, std::int32_t & result) noexcept;

/// Decimal digits, or hexadecimal ones after "0x" or with a letter among them; the whole text. A
/// number beyond 32 bits is no number.
outcome read_unsigned(char const * text, std::uint32_t & result) noexcept;

/// The decimal digits at the start of the text. The rest is ignored.
outcome read_leading_digits(char const * text, std::int64_t & result) noexcept;

/// What `strtod` reads in the "C" locale. The rest is ignored. Numbers that are too large give
/// infinity, too small ones 0.
/// \throws std::bad_alloc  from the host, for rare texts only.
outcome read_double(char const * text, double & result);

constexpr std::size_t longest = 24; // bytes of the texts below; e.g. "-9223372036854775808"

/// Writes decimal digits, with a minus sign for a negative number.
/// \returns the length of what was written to `text`, without a NUL.
std::size_t write_integer(char (&text)[longest], std::int64_t value) noexcept;

/// Writes what `printf` writes for "%g" in the "C" locale.
std::size_t write_double(char (&text)[longest], double value) noexcept;

} // namespace zel::number_text
