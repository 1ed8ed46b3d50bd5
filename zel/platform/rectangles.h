// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <type_traits>

// The plain structures stand outside the namespace, where the platform has them.

/// A place. It may be a part of something else, as the corner of a rectangle is, so the compiler is
/// told not to conclude from its type what a reference to it cannot mean.
struct __attribute__((may_alias)) t_point {
    std::int32_t x; ///< grows to the right
    std::int32_t y; ///< grows downwards
};

/// An extent.
struct t_size {
    std::int32_t cx; ///< width
    std::int32_t cy; ///< height
};

/// Two corners. The right and the bottom edge lie outside; the corners may be the wrong way round.
struct t_rect {
    std::int32_t left; ///< first column inside
    std::int32_t top; ///< first row inside
    std::int32_t right; ///< first column behind
    std::int32_t bottom; ///< first row below
};

static_assert(sizeof(t_point) == 8 && sizeof(t_size) == 8 && sizeof(t_rect) == 16);
static_assert(
    std::is_standard_layout_v<
        t_point> && std::is_standard_layout_v<t_size> && std::is_standard_layout_v<t_rect>);

namespace zel::platform {

/// Coordinates wrap around at 32 bits.
constexpr std::int32_t wrapping_sum(std::int32_t a, std::int32_t b) noexcept
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}
constexpr std::int32_t wrapping_difference(std::int32_t a, std::int32_t b) noexcept
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

// Of the functions below the destination may be one of the sources. Those that return a bool
// without saying more return true.

/// Whether nothing lies inside: no width, no height, or corners the wrong way round.
constexpr bool is_rect_empty(t_rect const & rect) noexcept
{
    return rect.left >= rect.right || rect.top >= rect.bottom;
}

constexpr bool set_rect_empty(t_rect & rect) noexcept
{
    rect = {0, 0, 0, 0};
    return true;
}

constexpr bool set_rect(t_rect & rect, std::int32_t left, std::int32_t top, std::int32_t right,
                        std::int32_t bottom) noexcept
{
    rect = {left, top, right, bottom};
    return true;
}

constexpr bool copy_rect(t_rect & destination, t_rect const & source) noexcept
{
    destination = source;
    return true;
}

/// Whether all four numbers are equal; two empty rectangles may differ.
constexpr bool equal_rect(t_rect const & a, t_rect const & b) noexcept
{
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

/// Whether the place lies inside, the left and the top edge included.
constexpr bool pt_in_rect(t_rect const & rect, t_point place) noexcept
{
    return rect.left <= place.x && place.x < rect.right && rect.top <= place.y
        && place.y < rect.bottom;
}

/// Moves each edge outwards; inwards by negative numbers.
constexpr bool inflate_rect(t_rect & rect, std::int32_t dx, std::int32_t dy) noexcept
{
    rect.left = wrapping_difference(rect.left, dx);
    rect.top = wrapping_difference(rect.top, dy);
    rect.right = wrapping_sum(rect.right, dx);
    rect.bottom = wrapping_sum(rect.bottom, dy);
    return true;
}

constexpr bool offset_rect(t_rect & rect, std::int32_t dx, std::int32_t dy) noexcept
{
    rect.left = wrapping_sum(rect.left, dx);
    rect.top = wrapping_sum(rect.top, dy);
    rect.right = wrapping_sum(rect.right, dx);
    rect.bottom = wrapping_sum(rect.bottom, dy);
    return true;
}

/// What two rectangles have in common.
/// \returns false, with all zeros in `destination`, when that is nothing.
constexpr bool intersect_rect(t_rect & destination, t_rect const & a, t_rect const & b) noexcept
{
    t_rect const common{a.left > b.left ? a.left : b.left, a.top > b.top ? a.top : b.top,
                        a.right < b.right ? a.right : b.right,
                        a.bottom < b.bottom ? a.bottom : b.bottom};
    // Each number of `common` bounds a and b alike, so it is empty wherever one of them is.
    if (is_rect_empty(common)) {
        destination = {0, 0, 0, 0};
        return false;
    }
    destination = common;
    return true;
}

/// The smallest rectangle around both; an empty one does not count.
/// \returns false, with all zeros in `destination`, when both are empty.
constexpr bool union_rect(t_rect & destination, t_rect const & a, t_rect const & b) noexcept
{
    bool const without_a = is_rect_empty(a);
    bool const without_b = is_rect_empty(b);
    if (without_a && without_b) {
        destination = {0, 0, 0, 0};
        return false;
    }
    if (without_a || without_b) {
        destination = without_a ? b : a;
    } else {
        destination
            = {a.left < b.left ? a.left : b.left, a.top < b.top ? a.top : b.top,
               a.right > b.right ? a.right : b.right, a.bottom > b.bottom ? a.bottom : b.bottom};
    }
    return true;
}

/// `a` without what it has in common with `b`, where that is one rectangle again: where `b` covers
/// a whole side of `a` and all between that side and some line across. Otherwise all of `a`.
/// \returns false when nothing is left; all zeros if `b` took it.
constexpr bool subtract_rect(t_rect & destination, t_rect const & a, t_rect const & b) noexcept
{
    t_rect common{};
    t_rect rest = a;
    if (intersect_rect(common, a, b)) {
        bool const whole_width = common.left == a.left && common.right == a.right;
        bool const whole_height = common.top == a.top && common.bottom == a.bottom;
        if (whole_width && whole_height) {
            rest = {0, 0, 0, 0};
        } else if (whole_width && common.top == a.top) {
            rest.top = common.bottom;
        } else if (whole_width && common.bottom == a.bottom) {
            rest.bottom = common.top;
        } else if (whole_height && common.left == a.left) {
            rest.left = common.right;
        } else if (whole_height && common.right == a.right) {
            rest.right = common.left;
        }
    }
    destination = rest;
    return !is_rect_empty(rest);
}

} // namespace zel::platform
