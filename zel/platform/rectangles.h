// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <type_traits>

// The plain structures are outside the namespace, because the platform has them there.

/// A place. It may overlay part of another structure, such as the corner of a rectangle, so
/// `may_alias` turns off the compiler's type-based alias analysis for it.
struct __attribute__((may_alias)) t_point {
    std::int32_t x; ///< grows to the right
    std::int32_t y; ///< grows downwards
};

/// An extent.
struct t_size {
    std::int32_t cx; ///< width
    std::int32_t cy; ///< height
};

/// Four edges. The right and the bottom edge are outside; edges may be swapped.
struct t_rect {
    std::int32_t left; ///< first column inside
    std::int32_t top; ///< first row inside
    std::int32_t right; ///< first column outside
    std::int32_t bottom; ///< first row outside
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

// In the functions below, the destination may be one of the sources. Functions that return a bool
// without a description always return true.

/// True if nothing is inside: no width, no height, or swapped edges.
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

/// True if all four numbers are equal; two empty rectangles may differ.
constexpr bool equal_rect(t_rect const & a, t_rect const & b) noexcept
{
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

/// True if the place is inside; the left and the top edge are inside.
constexpr bool pt_in_rect(t_rect const & rect, t_point place) noexcept
{
    return rect.left <= place.x && place.x < rect.right && rect.top <= place.y
        && place.y < rect.bottom;
}

/// Moves each edge outwards; negative numbers move it inwards.
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

/// The intersection of two rectangles.
/// \returns false, with all zeros in `destination`, when it is empty.
constexpr bool intersect_rect(t_rect & destination, t_rect const & a, t_rect const & b) noexcept
{
    t_rect const common{a.left > b.left ? a.left : b.left, a.top > b.top ? a.top : b.top,
                        a.right < b.right ? a.right : b.right,
                        a.bottom < b.bottom ? a.bottom : b.bottom};
    // Each edge of `common` lies within both, so it is empty if one of them is empty.
    if (is_rect_empty(common)) {
        destination = {0, 0, 0, 0};
        return false;
    }
    destination = common;
    return true;
}

/// The smallest rectangle around both; empty ones are ignored.
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

/// `a` without `b`, if that is one rectangle: if `b` covers a whole side of `a` and everything from
/// that side to some line across. Otherwise all of `a`.
/// \returns false when nothing is left; `destination` is then all zeros if `b` covered `a`.
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
