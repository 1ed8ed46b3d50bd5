// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace zel {

/// The absolute value of `value` times 10 to the power of `scale`, rounded to an integer, halves to
/// the even one. The rounding is exact: it sees every bit of the value.
/// \param result  receives the integer.
/// \returns false, with nothing stored, for a value that is beyond this short way: infinite, no
///          number, subnormal, or with intermediate results of more than 128 bits. Values of the
///          size that people print pass.
bool round_scaled(double value, int scale, std::uint64_t & result) noexcept;

/// The first `digits` digits of a value other than 0: value = 0.ddd * 10 to the power of
/// (`exponent` + 1), rounded as above.
/// \param digits    1 to 17.
/// \param exponent  receives the power of ten of the first digit.
/// \returns false as above, and for 0.
bool round_to_digits(double value, int digits, std::uint64_t & result, int & exponent) noexcept;

} // namespace zel
