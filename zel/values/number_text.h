// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Numbers and their texts as a `variant` converts them: each type of number has a grammar of its
/// own. No locale, no allocation, and failures as results, since a question whether a text is a
/// number is answered as often with no. Texts end at their NUL.
namespace zel::number_text {

enum class outcome : unsigned char {
    done,
    no_number,
    out_of_range,
};

/// "true", "1", "false" or "0" in any case of letters, and nothing else.
outcome read_bool(char const * text, bool & result) noexcept;

/// What `strtol` with base 0 reads where a `long` has 32 bits, which is also where it stops
/// counting: blanks, a sign, a prefix that tells the base, digits; the rest is ignored.
outcome read_any_base(char const * text, std::int32_t & result) noexcept;

/// Decimal digits behind an optional sign, the whole text; beyond 32 bits is no number.
/// \param text  has a NUL behind it, and may end with one before.
outcome read_signed(std::string_view text, std::int32_t & result) noexcept;

/// Decimal digits, hexadecimal ones behind "0x" or with a letter among them, the whole text; beyond
/// 32 bits is no number.
outcome read_unsigned(char const * text, std::uint32_t & result) noexcept;

/// The decimal digits that the text begins with; the rest is ignored.
outcome read_leading_digits(char const * text, std::int64_t & result) noexcept;

/// What `strtod` reads in the "C" locale; the rest is ignored. Beyond the largest number lies
/// infinity, below the smallest 0.
/// \throws std::bad_alloc  from the host, for texts that are rare.
outcome read_double(char const * text, double & result);

constexpr std::size_t longest = 24; // of the texts below; the widest is "-9223372036854775808"

/// Decimal digits, a minus sign in front of those of a negative number.
/// \returns the length of what was written to `text`, without a NUL.
std::size_t write_integer(char (&text)[longest], std::int64_t value) noexcept;

/// What `printf` makes of "%g" in the "C" locale.
std::size_t write_double(char (&text)[longest], double value) noexcept;

} // namespace zel::number_text
