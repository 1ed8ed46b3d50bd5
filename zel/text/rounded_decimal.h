// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace zel {

__extension__ using uint128 = unsigned __int128;

/// The absolute value of `value`, rounded to `places` decimal places, halves to the even digit. The
/// rounding is exact: it takes every bit of the value into account.
/// \param places    0 to 19.
/// \param whole     receives the integer part.
/// \param fraction  receives the digits behind the point as one number.
/// \returns false, with nothing stored, for infinity, for a NaN and from 2^128 on.
bool round_to_places(double value, int places, uint128 & whole, std::uint64_t & fraction) noexcept;

/// The first `digits` digits of a value other than 0, rounded as above: value = 0.ddd *
/// 10^(`exponent` + 1).
/// \param digits    1 to 17.
/// \param exponent  receives the power of ten of the first digit.
/// \returns false, with nothing stored, where the available powers of ten are not precise enough to
///          decide: for 0, for subnormal numbers, infinity and NaN, for values far below 1e-30 or
///          above 1e50, and for some values above 1e19 that lie half-way between two results.
bool round_to_digits(double value, int digits, std::uint64_t & result, int & exponent) noexcept;

} // namespace zel
