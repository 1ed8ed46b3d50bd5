// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/exception.h"
#include <bit>
#include <cstdint>

namespace zel {

/// Strict conversion of text to numbers: this is where a number is parsed. A parser accepts the
/// whole NUL-terminated text or raises.
///
/// No blanks, no digit grouping, no locale, no allocation. Signed integers are decimal digits after
/// an optional `+` or `-`. Unsigned integers take no sign. They are hexadecimal after `0x` or `0X`,
/// and also wherever a letter digit occurs, so that `10` is 10 and `1F` is 31. Fractional numbers
/// are an integer, an optional fraction after `.`, and an optional decimal exponent after `e`, `E`,
/// `d` or `D`; each of the three has to fit a 64-bit signed integer. No text may be null. There is
/// no state: any number of threads may call all members.
/// \code
///     std::uint32_t const port = zel::convert::stringToUInt32("8080");
///     double const ratio = zel::convert::stringToDouble("1.5e-3");
/// \endcode
class ZEL_API convert {
public:
    /// Raised when the text is not a number of the type.
    class ZEL_API exception : public zel::exception {
    public:
        /// The reasons, which `get_type()` tells.
        enum exc_type : std::uint32_t {
            data_convert_error = 1,
            out_of_range = 2,
            wrong_symbol = 3,
            unexpected_end = 4,
        };

        /// `position` and `symbol`, where a parser stopped and at which byte, are accepted and
        /// ignored.
        /// \param text  follows the text of the reason; null for none.
        exception(exc_type type, std::int32_t position, char const * text);
        exception(exc_type type, std::int32_t position, char symbol, char const * text);
        exception(exception const &) = default;
        exception & operator=(exception const &) = default;
        ~exception() override;
    };

    convert() = default;
    convert(convert const &) = default;
    /// There is nothing to assign.
    convert & operator=(convert const &) noexcept { return *this; }

    /// \throws exception  `unexpected_end` for an empty text or a sign alone, `wrong_symbol` for a
    ///                    byte that is no digit, `out_of_range` for a number beyond the type: the
    ///                    failure that comes first in the text.
    static signed char stringToInt8(char const * text);
    static short stringToInt16(char const * text);
    static std::int32_t stringToInt32(char const * text);
    static std::int64_t stringToInt64(char const * text);

    /// A letter makes the digits before it hexadecimal too, but only if these digits fit as a
    /// decimal number: `300A` is out of range for 8 bits because of its 300.
    /// \throws exception  `unexpected_end` for an empty text or `0x` alone, `wrong_symbol` for a
    ///                    byte that is no digit, also a sign, `out_of_range`: the failure that
    ///                    comes first.
    static unsigned char stringToUInt8(char const * text);
    static unsigned short stringToUInt16(char const * text);
    static std::uint32_t stringToUInt32(char const * text);
    static std::uint64_t stringToUInt64(char const * text);

    /// The value is computed from the three parts in a fixed order of double-precision steps: it
    /// has the same bits on every machine, but is not always the number nearest to the text. `.5`
    /// and `5.e0` are numbers, `5.` and `-.5` are not. Without point and exponent the text is a
    /// 64-bit integer that is converted directly. Every byte is read, however long a part is.
    ///
    /// The limits are those of `checkFloatLimits` and `checkDoubleLimits`: nothing is rounded to 0
    /// or to infinity. Just above the lower limit of a double, the steps can lose a few units of
    /// the last place and give a subnormal number: "2.2250738585072014e-308" does.
    /// \throws exception  as for signed integers, first for the integer, then for the fraction,
    ///                    then for the exponent; then `out_of_range` for a number beyond the
    ///                    limits, or for a number other than 0 whose exponent does not fit 32 bits.
    static float stringToFloat(char const * text);
    static double stringToDouble(char const * text);

    /// `stringToInt64` of the bytes from `start` up to `end` or the NUL, at most 255 bytes.
    /// \param end  -1 for the end of the text. If it equals `start`, the result is 0.
    static std::int64_t getIntFromString(char const * text, std::int32_t start, std::int32_t end);

    /// `value` multiplied by 10.0 `exponent` times, or divided by it for a negative exponent, with
    /// rounding at each step. It stops when a step no longer changes the value: at 0, at infinity.
    static double mulPow10(double value, std::int64_t exponent) noexcept;

    /// Checks that (|integer_part| + fraction) * 10^exponent is 0 or lies between the smallest
    /// normal number of the type and the largest: 1.175494351e-38 and 3.402823466e38, or
    /// 2.2250738585072014e-308 and 1.7976931348623157e308.
    /// \param exponent  only its low 32 bits count, as a signed number.
    /// \throws exception  `out_of_range` if it does not, and for a sum that is negative or not
    ///                    finite.
    static void checkFloatLimits(std::int64_t integer_part, double fraction, std::int64_t exponent);
    static void checkDoubleLimits(std::int64_t integer_part, double fraction,
                                  std::int64_t exponent);

    /// (|integer_part| + fraction) * 10^exponent with the sign of `integer_part`. Raises only what
    /// the check of the limits raises.
    static float composeFloat(std::int64_t integer_part, double fraction, std::int64_t exponent);
    static double composeDouble(std::int64_t integer_part, double fraction, std::int64_t exponent);

    /// The unchanged bits. Those of a `float` are in the low half; the high half is 0 in a result
    /// and ignored in an argument.
    static constexpr std::uint64_t dblToui64(double value) noexcept
    {
        return std::bit_cast<std::uint64_t>(value);
    }
    static constexpr double ui64ToDouble(std::uint64_t bits) noexcept
    {
        return std::bit_cast<double>(bits);
    }
    static constexpr std::uint64_t flToui64(float value) noexcept
    {
        return std::bit_cast<std::uint32_t>(value);
    }
    static constexpr float ui64ToFloat(std::uint64_t bits) noexcept
    {
        return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
    }
};

} // namespace zel
