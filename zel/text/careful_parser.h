// SPDX-License-Identifier: MIT
#pragma once

#include "zel/text/convert.h"
#include <cstddef>
#include <cstdint>

/// What the parsers of `convert` do with a text that is not plainly good. A parser reads quickly
/// first and looks at the outcome; where that is not plainly good, its careful form reads again from
/// the start, digit by digit, and finds the failure that comes first.
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

/// Decimal digits behind an optional sign, and nothing else.
/// \param length   of the text at most; it may end earlier with a NUL.
/// \param largest  the largest value of the type, whose smallest is that and one more below 0.
/// \throws convert::exception  as `convert::stringToInt64` does.
std::int64_t parse_signed(char const * text, std::size_t length, std::uint64_t largest);

} // namespace zel::careful_parser
