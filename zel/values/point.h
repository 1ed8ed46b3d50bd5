// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/platform/rectangles.h"
#include "zel/text/string.h"
#include <concepts>
#include <cstdint>
#include <iosfwd>

namespace zel {

/// A place on the screen, laid out as a `t_point`.
///
/// Arithmetic wraps around at 32 bits. A plain value: many readers or one writer.
/// \code
///     zel::point pointer(3, 4);
///     pointer.offset(10, 0);
///     pointer.to_string("%d,%d");     // 13,4
/// \endcode
class ZEL_API __attribute__((may_alias)) point : public t_point {
public:
    /// A place, or the end of an extent that begins at 0, 0.
    constexpr point(std::int32_t across = 0, std::int32_t down = 0) noexcept
        : t_point{across, down}
    {
    }
    constexpr point(t_point const & other) noexcept
        : t_point(other)
    {
    }
    constexpr point(t_size const & extent) noexcept
        : t_point{extent.cx, extent.cy}
    {
    }
    constexpr point(point const &) noexcept = default;
    constexpr point & operator=(point const &) noexcept = default;

    /// Compares with a `t_point` or a class derived from it, but not with a type that only converts
    /// to `point`, such as a number.
    template <std::derived_from<t_point> T>
    constexpr bool operator==(T const & other) const noexcept
    {
        return x == other.x && y == other.y;
    }

    /// Moves the place.
    constexpr void offset(std::int32_t dx, std::int32_t dy) noexcept
    {
        x = platform::wrapping_sum(x, dx);
        y = platform::wrapping_sum(y, dy);
    }
    constexpr void offset(t_point by) noexcept { offset(by.x, by.y); }
    constexpr void offset(t_size by) noexcept { offset(by.cx, by.cy); }

    /// Move the place, forth and back.
    constexpr void operator+=(t_point by) noexcept { offset(by); }
    constexpr void operator+=(t_size by) noexcept { offset(by); }
    constexpr void operator-=(t_point by) noexcept
    {
        x = platform::wrapping_difference(x, by.x);
        y = platform::wrapping_difference(y, by.y);
    }
    constexpr void operator-=(t_size by) noexcept { *this -= t_point{by.cx, by.cy}; }

    /// \param format  a printf format with one conversion for `x`, then one for `y`. Both are
    ///                numbers of 32 bits, with `l` as without.
    /// \throws memory_exception  `null_pointer` for a null format.
    string to_string(char const * format);

    /// Writes for example "{x 3, y 4}".
    friend ZEL_API std::ostream & operator<<(std::ostream & stream, point const & value);
};

static_assert(sizeof(point) == sizeof(t_point) && std::is_standard_layout_v<point>);

} // namespace zel
