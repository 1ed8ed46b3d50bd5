// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/platform/rectangles.h"
#include "zel/text/string.h"
#include "zel/values/point.h"
#include "zel/values/size.h"
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace zel {

/// A rectangle on the screen, laid out as a `t_rect`.
///
/// The right and the bottom edge are outside, so that width and height are plain differences. The
/// edges may be swapped; such a rectangle is empty until it is normalised. Arithmetic wraps around
/// at 32 bits. A plain value: many readers or one writer.
/// \code
///     zel::rect window(0, 0, 640, 480);
///     window.deflate(8, 8);
///     zel::rect const visible = window & screen;
///     if (!visible.is_empty()) { draw(visible); }
/// \endcode
class ZEL_API rect : public t_rect {
public:
    /// From four edges, from two corners, or from a corner and an extent.
    constexpr rect(std::int32_t new_left = 0, std::int32_t new_top = 0, std::int32_t new_right = 0,
                   std::int32_t new_bottom = 0) noexcept
        : t_rect{new_left, new_top, new_right, new_bottom}
    {
    }
    constexpr rect(t_point top_left, t_point bottom_right) noexcept
        : t_rect{top_left.x, top_left.y, bottom_right.x, bottom_right.y}
    {
    }
    constexpr rect(t_point top_left, t_size extent) noexcept
        : t_rect{top_left.x, top_left.y, platform::wrapping_sum(top_left.x, extent.cx),
                 platform::wrapping_sum(top_left.y, extent.cy)}
    {
    }
    constexpr rect(t_rect const & other) noexcept
        : t_rect(other)
    {
    }
    constexpr rect(rect const &) noexcept = default;
    constexpr rect & operator=(rect const &) noexcept = default;
    // A template, so that braces make a `rect`.
    template <std::derived_from<t_rect> T> constexpr void operator=(T const & other) noexcept
    {
        platform::copy_rect(*this, other);
    }

    /// Like the constructors with the same arguments.
    constexpr void set_rect(std::int32_t new_left, std::int32_t new_top, std::int32_t new_right,
                            std::int32_t new_bottom) noexcept
    {
        *this = rect(new_left, new_top, new_right, new_bottom);
    }
    constexpr void set_rect(t_point top_left, t_point bottom_right) noexcept
    {
        *this = rect(top_left, bottom_right);
    }
    constexpr void set_rect(t_point top_left, t_size extent) noexcept
    {
        *this = rect(top_left, extent);
    }

    /// Sets all four numbers to 0.
    constexpr void set_empty() noexcept { platform::set_rect_empty(*this); }

    /// Exchanges edges that are swapped.
    constexpr void normalize() noexcept
    {
        *this = rect(left < right ? left : right, top < bottom ? top : bottom,
                     left < right ? right : left, top < bottom ? bottom : top);
    }

    /// Negative when the edges are swapped.
    constexpr std::int32_t get_width() const noexcept
    {
        return platform::wrapping_difference(right, left);
    }
    constexpr std::int32_t get_height() const noexcept
    {
        return platform::wrapping_difference(bottom, top);
    }
    constexpr size get_size() const noexcept { return {get_width(), get_height()}; }

    /// A reference to the corner: writing to it moves the corner of this rectangle.
    point & get_top_left() noexcept { return reinterpret_cast<point &>(left); }
    point const & get_top_left() const noexcept { return reinterpret_cast<point const &>(left); }
    point & get_bottom_right() noexcept { return reinterpret_cast<point &>(right); }
    point const & get_bottom_right() const noexcept
    {
        return reinterpret_cast<point const &>(right);
    }

    /// A copy of the corner, which is composed of two edges.
    constexpr point get_top_right() const noexcept { return {right, top}; }
    constexpr point get_bottom_left() const noexcept { return {left, bottom}; }

    /// The sum of the edges, which may wrap around, halved towards zero.
    constexpr point get_center() const noexcept
    {
        return {platform::wrapping_sum(left, right) / 2, platform::wrapping_sum(top, bottom) / 2};
    }

    /// True if no point lies inside.
    constexpr bool is_empty() const noexcept { return platform::is_rect_empty(*this); }

    /// True if all four numbers are 0.
    constexpr bool is_null() const noexcept { return *this == t_rect{}; }

    /// The left and the top edge belong to the rectangle, the right and the bottom one do not.
    constexpr bool is_point_in_rect(t_point place) const noexcept
    {
        return platform::pt_in_rect(*this, place);
    }

    /// Compares with a `t_rect` or a class derived from it, but not with a type that only converts
    /// to `rect`, such as a number.
    template <std::derived_from<t_rect> T> constexpr bool operator==(T const & other) const noexcept
    {
        return platform::equal_rect(*this, other);
    }

    /// Move the edges outwards.
    constexpr void inflate(std::int32_t dx, std::int32_t dy) noexcept
    {
        platform::inflate_rect(*this, dx, dy);
    }
    constexpr void inflate(t_size by) noexcept { inflate(by.cx, by.cy); }
    constexpr void inflate(std::int32_t l, std::int32_t t, std::int32_t r, std::int32_t b) noexcept
    {
        left = platform::wrapping_difference(left, l);
        top = platform::wrapping_difference(top, t);
        right = platform::wrapping_sum(right, r);
        bottom = platform::wrapping_sum(bottom, b);
    }
    constexpr void inflate(t_rect const & by) noexcept
    {
        inflate(by.left, by.top, by.right, by.bottom);
    }
    constexpr void operator+=(t_rect const & by) noexcept { inflate(by); }

    /// Move the edges inwards; they may pass each other.
    constexpr void deflate(std::int32_t dx, std::int32_t dy) noexcept
    {
        inflate(platform::wrapping_difference(0, dx), platform::wrapping_difference(0, dy));
    }
    constexpr void deflate(t_size by) noexcept { deflate(by.cx, by.cy); }
    constexpr void deflate(std::int32_t l, std::int32_t t, std::int32_t r, std::int32_t b) noexcept
    {
        left = platform::wrapping_sum(left, l);
        top = platform::wrapping_sum(top, t);
        right = platform::wrapping_difference(right, r);
        bottom = platform::wrapping_difference(bottom, b);
    }
    constexpr void deflate(t_rect const & by) noexcept
    {
        deflate(by.left, by.top, by.right, by.bottom);
    }
    constexpr void operator-=(t_rect const & by) noexcept { deflate(by); }

    /// Move the whole rectangle.
    constexpr void offset(std::int32_t dx, std::int32_t dy) noexcept
    {
        platform::offset_rect(*this, dx, dy);
    }
    constexpr void offset(t_point by) noexcept { offset(by.x, by.y); }
    constexpr void offset(t_size by) noexcept { offset(by.cx, by.cy); }
    constexpr void operator+=(t_point by) noexcept { offset(by); }
    constexpr void operator+=(t_size by) noexcept { offset(by); }
    constexpr void operator-=(t_point by) noexcept
    {
        offset(platform::wrapping_difference(0, by.x), platform::wrapping_difference(0, by.y));
    }
    constexpr void operator-=(t_size by) noexcept { *this -= t_point{by.cx, by.cy}; }

    /// Makes this the intersection of `a` and `b`; either may be this rectangle.
    /// \returns false, and sets all zeros, when the intersection is empty.
    constexpr bool set_intersect(t_rect const & a, t_rect const & b) noexcept
    {
        return platform::intersect_rect(*this, a, b);
    }

    /// Makes this the smallest rectangle around `a` and `b`; empty ones are ignored. Either may be
    /// this rectangle.
    /// \returns false, and sets all zeros, when both are empty.
    constexpr bool set_union(t_rect const & a, t_rect const & b) noexcept
    {
        return platform::union_rect(*this, a, b);
    }

    /// Makes this `a` without `b` if that is one rectangle, else `a`. Either may be this rectangle.
    /// \returns false when nothing is left.
    constexpr bool set_subtract(t_rect const & a, t_rect const & b) noexcept
    {
        return platform::subtract_rect(*this, a, b);
    }

    /// The intersection, and the smallest rectangle around both.
    constexpr void operator&=(t_rect const & other) noexcept { set_intersect(*this, other); }
    constexpr void operator|=(t_rect const & other) noexcept { set_union(*this, other); }

    /// \param format  a printf format with one conversion each for `left`, `top`, `right` and
    ///                `bottom`: numbers of 32 bits, with `l` as without.
    /// \throws memory_exception  `null_pointer` for a null format.
    string to_string(char const * format);

    /// Writes for example "{left 0, top 0, right 10, bottom 5}".
    friend ZEL_API std::ostream & operator<<(std::ostream & stream, rect const & value);
};

// A corner is a point within the rectangle.
static_assert(sizeof(rect) == sizeof(t_rect) && std::is_standard_layout_v<rect>);
static_assert(offsetof(t_rect, top) == offsetof(t_rect, left) + offsetof(t_point, y)
              && offsetof(t_rect, bottom) == offsetof(t_rect, right) + offsetof(t_point, y));

/// The operands of two operators: rectangles, at least one of them a `rect`, and no type that only
/// converts.
template <typename A, typename B>
concept two_rects = std::derived_from<A, t_rect> && std::derived_from<B, t_rect> &&(
    std::derived_from<A, rect> || std::derived_from<B, rect>);

/// The intersection, or all zeros.
template <typename A, typename B>
requires two_rects<A, B>
constexpr rect operator&(A const & a, B const & b) noexcept
{
    rect common;
    common.set_intersect(a, b);
    return common;
}

/// The smallest rectangle around both; empty ones are ignored.
template <typename A, typename B>
requires two_rects<A, B>
constexpr rect operator|(A const & a, B const & b) noexcept
{
    rect both;
    both.set_union(a, b);
    return both;
}

constexpr rect operator+(rect const & source, t_point by) noexcept
{
    rect moved(source);
    moved += by;
    return moved;
}
constexpr rect operator+(rect const & source, t_size by) noexcept
{
    rect moved(source);
    moved += by;
    return moved;
}
constexpr rect operator-(rect const & source, t_point by) noexcept
{
    rect moved(source);
    moved -= by;
    return moved;
}
constexpr rect operator-(rect const & source, t_size by) noexcept
{
    rect moved(source);
    moved -= by;
    return moved;
}

} // namespace zel
