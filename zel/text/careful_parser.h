// SPDX-License-Identifier: MIT
#pragma once

#include "zel/text/convert.h"
#include <cstddef>
#include <cstdint>

/// The slow paths of the parsers of `convert`. A parser first reads fast. If the result is not
/// plainly valid, its slow path reads again from the start, digit by digit, and finds the failure
/// that comes first.
namespace zel::careful_parser {

[[noreturn, gnu::cold]] void refuse(convert::exception::exc_type type, std::ptrdiff_t position);
[[noreturn, gnu::cold]] void refuse_symbol(std::ptrdiff_t position, char symbol);

constexpr std::uint64_t limit_of(bool negative, std::uint64_t largest) noexcept
{
    return largest + (negative ? 1 : 0);
}

constexpr std::int64_t with_sign(bool negative, std::uint64_t magnitude) noexcept
{
    return static_cast<std::int64_t>(negative ? 0 - magnitude : magnitude);
}

/// Parses decimal digits after an optional sign, and nothing else.
/// \param length   the maximum length of the text; a NUL may end it earlier.
/// \param largest  the largest value of the type; the smallest is -largest - 1.
/// \throws convert::exception  as `convert::stringToInt64` does.
std::int64_t parse_signed(char const * text, std::size_t length, std::uint64_t largest);

} // namespace zel::careful_parser
