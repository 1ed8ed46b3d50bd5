// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace zel {

__extension__ using uint128 = unsigned __int128;

/// The absolute value of `value`, rounded to `places` decimal places, halves to the even digit. The
/// rounding is exact: it sees every bit of the value.
/// \param places    0 to 19.
/// \param whole     receives what stands in front of the point.
/// \param fraction  receives the digits behind the point as one number.
/// \returns false, with nothing stored, for what is infinite or no number and from 2^128 on.
bool round_to_places(double value, int places, uint128 & whole, std::uint64_t & fraction) noexcept;

/// The first `digits` digits of a value other than 0: value = 0.ddd * 10 to the power of
/// (`exponent` + 1), rounded as above.
/// \param digits    1 to 17.
/// \param exponent  receives the power of ten of the first digit.
/// \returns false, with nothing stored, where the powers of ten at hand are not enough to decide:
///          for 0, for what is subnormal, infinite or no number, for values far below 1e-30 or
///          above 1e50, and for some of the values above 1e19 that lie half-way between two results.
bool round_to_digits(double value, int digits, std::uint64_t & result, int & exponent) noexcept;

} // namespace zel
