// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/exception.h"
#include <bit>
#include <cstdint>

namespace zel {

/// Strict numbers from text: a parser accepts the whole NUL-terminated text or raises.
///
/// No blanks, no digit grouping, no locale, no allocation. Signed integers are decimal digits
/// behind an optional `+` or `-`. Unsigned ones take no sign and find hexadecimal out by
/// themselves: behind `0x` or `0X`, and wherever a letter digit occurs, so that `10` is 10 and `1F`
/// is 31. Fractional numbers are an integer, an optional fraction behind `.`, and an optional
/// decimal exponent behind `e`, `E`, `d` or `D`; each of the three has to fit a 64-bit signed
/// integer. No text may be null. Everything is free of state: any number of threads may call all of
/// it.
/// \code
///     std::uint32_t const port = zel::convert::stringToUInt32("8080");
///     double const ratio = zel::convert::stringToDouble("1.5e-3");
/// \endcode
class ZEL_API convert {
public:
    /// The text is no number of the type.
    class ZEL_API exception : public zel::exception {
    public:
        /// The reasons, which `get_type()` tells.
        enum exc_type : std::uint32_t {
            data_convert_error = 1,
            out_of_range = 2,
            wrong_symbol = 3,
            unexpected_end = 4,
        };

        /// `position` and `symbol` tell the reader of a call where a parser stopped and at which
        /// byte; they are accepted and ignored.
        /// \param text  goes behind the reason; null for nothing.
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

    /// \throws exception  `unexpected_end` for an empty text or a lone sign, `wrong_symbol` for a
    ///                    byte that is no digit, `out_of_range` for a number beyond the type;
    ///                    whichever comes first in the text.
    static signed char stringToInt8(char const * text);
    static short stringToInt16(char const * text);
    static std::int32_t stringToInt32(char const * text);
    static std::int64_t stringToInt64(char const * text);

    /// A letter makes the digits before it hexadecimal too, but only where the decimal number so
    /// far did fit: `300A` is out of range for 8 bits because of its 300.
    /// \throws exception  `unexpected_end` for an empty text or a lone `0x`, `wrong_symbol` for a
    ///                    byte that is no digit, signs included, `out_of_range`; whichever comes
    ///                    first.
    static unsigned char stringToUInt8(char const * text);
    static unsigned short stringToUInt16(char const * text);
    static std::uint32_t stringToUInt32(char const * text);
    static std::uint64_t stringToUInt64(char const * text);

    /// The value is composed from the pieces in a fixed order of double-precision steps: the same
    /// bits everywhere, and not always the number nearest to the text. `.5` and `5.e0` are numbers,
    /// `5.` and `-.5` are not. Without point and exponent the text is a 64-bit integer that is
    /// converted directly. Every byte is read, however long a piece is.
    ///
    /// The limits are those of `checkFloatLimits` and `checkDoubleLimits`: nothing is rounded to 0
    /// or to infinity. Just above the lower limit of a double the steps can lose a few units of the
    /// last place, which then gives a subnormal number: "2.2250738585072014e-308" does.
    /// \throws exception  as for signed integers, of the integer, the fraction, then the exponent;
    ///                    then `out_of_range` for a number beyond the limits or, unless it is 0,
    ///                    with an exponent that does not fit 32 bits.
    static float stringToFloat(char const * text);
    static double stringToDouble(char const * text);

    /// `stringToInt64` of the bytes from `start` up to `end`, of 255 at most, and up to the NUL.
    /// \param end  -1 for the end of the text. Equal to `start` gives 0.
    static std::int64_t getIntFromString(char const * text, std::int32_t start, std::int32_t end);

    /// `value` multiplied by 10.0 `exponent` times, or divided by it for a negative one, rounding
    /// at each step. Stops where a step changes nothing any more: at 0, at infinity.
    static double mulPow10(double value, std::int64_t exponent) noexcept;

    /// Whether (|integer_part| + fraction) * 10^exponent is 0 or lies between the smallest normal
    /// number of the type and the largest: 1.175494351e-38 and 3.402823466e38, or
    /// 2.2250738585072014e-308 and 1.7976931348623157e308.
    /// \param exponent  counts with its low 32 bits, as a signed number.
    /// \throws exception  `out_of_range` if not, and for a sum that is negative or not finite.
    static void checkFloatLimits(std::int64_t integer_part, double fraction, std::int64_t exponent);
    static void checkDoubleLimits(std::int64_t integer_part, double fraction,
                                  std::int64_t exponent);

    /// (|integer_part| + fraction) * 10^exponent with the sign of `integer_part`, after the check,
    /// which is all that is refused.
    static float composeFloat(std::int64_t integer_part, double fraction, std::int64_t exponent);
    static double composeDouble(std::int64_t integer_part, double fraction, std::int64_t exponent);

    /// The bits as they are; those of a `float` in the low half, the high half 0 or not looked at.
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
