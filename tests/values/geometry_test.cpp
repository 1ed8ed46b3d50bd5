// SPDX-License-Identifier: MIT
#include "tests/support/property.h"
#include "zel/core/exception.h"
#include "zel/values/point.h"
#include "zel/values/rect.h"
#include "zel/values/size.h"

#include <gtest/gtest.h>
#include <limits>
#include <sstream>
#include <type_traits>
#include <utility>

extern "C" property rectangles_property;

namespace {

using zel::point;
using zel::rect;
using zel::size;

constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();

template <typename value> constexpr value after(value object, auto && change)
{
    change(object);
    return object;
}

// The classes work in constant expressions, so what needs no table is tested by being compiled, and
// an overflow would not compile at all.
static_assert(point() == point(0, 0) && point(size(3, 4)) == t_point{3, 4});
static_assert(t_point{3, 4} == point(3, 4) && point(3, 4) != point(3, 5));
static_assert(size(point(3, 4)) == t_size{3, 4} && size(3, 4) != size(4, 4));
static_assert(after(point(most, least), [](auto & p) { p += point(1, -1); }) == point(least, most));
static_assert(after(point(least, most), [](auto & p) { p -= size(1, -1); }) == point(most, least));
static_assert(after(point(1, 2), [](auto & p) { p.offset(size(10, 20)); }) == point(11, 22));
static_assert(after(size(most, 5), [](auto & s) { s += size(1, 2); }) == size(least, 7));
static_assert(after(size(least, 5), [](auto & s) { s -= size(1, 2); }) == size(most, 3));

// Numbers convert to all three, and are not meant to be compared with them.
constexpr auto compare = [](auto const & a, auto const & b) -> decltype(a == b) { return a == b; };
constexpr auto combine = [](auto const & a, auto const & b) -> decltype(a & b) { return a & b; };
template <auto operation, typename A, typename B>
constexpr bool takes = std::is_invocable_v<decltype(operation), A, B>;
static_assert(!takes<compare, point, int> && !takes<compare, int, size>);
static_assert(!takes<compare, rect, int> && takes<compare, t_rect, rect>);
static_assert(!takes<combine, rect, int> && takes<combine, t_rect, rect>);
static_assert(!takes<combine, t_rect, t_rect>);

static_assert(rect(point(1, 2), size(10, 20)) == rect(1, 2, 11, 22));
static_assert(rect(point(1, 2), point(10, 20)) == t_rect{1, 2, 10, 20});
static_assert(rect(point(most, 0), size(1, 1)) == rect(most, 0, least, 1));
static_assert(rect(1, 2, 1, 5).is_empty() && !rect(1, 2, 1, 5).is_null() && rect().is_null());
static_assert(rect(1, 2, 3, 7).get_size() == size(2, 5) && rect(3, 0, 1, 1).get_width() == -2);
static_assert(rect(1, 2, 3, 4).get_top_right() == point(3, 2));
static_assert(rect(1, 2, 3, 4).get_bottom_left() == point(1, 4));

// What moves the edges is in the property below.
static_assert(after(rect(1, 2, 3, 4), [](auto & r) { r += r; }) == rect(0, 0, 6, 8));
static_assert(after(rect(), [](auto & r) { r.set_rect(1, 2, 3, 4); }) == t_rect{1, 2, 3, 4});
static_assert(after(rect(), [](auto & r) { r.set_rect(point(1, 2), point(3, 4)); })
              == rect(1, 2, 3, 4));
static_assert(after(rect(), [](auto & r) { r.set_rect(point(1, 2), size(3, 4)); })
              == rect(1, 2, 4, 6));
static_assert(after(rect(), [](auto & r) { r = t_rect{1, 2, 3, 4}; }) == rect(1, 2, 3, 4));
static_assert(after(rect(1, 2, 3, 4), [](auto & r) { r.set_empty(); }).is_null());

// Not inlined, so that the compiler has to decide from the types whether the two may overlap.
[[gnu::noinline]] std::int32_t left_after_both_are_written(rect & whole, point & corner)
{
    whole.left = 1;
    corner.x = 2;
    return whole.left;
}

TEST(rect, lends_its_corners)
{
    rect r(1, 2, 3, 4);
    r.get_top_left() = point(-1, -2);
    r.get_bottom_right().offset(10, 20);
    EXPECT_EQ(r, rect(-1, -2, 13, 24));
    EXPECT_EQ(std::as_const(r).get_top_left(), point(-1, -2));
    EXPECT_EQ(std::as_const(r).get_bottom_right(), point(13, 24));

    EXPECT_EQ(left_after_both_are_written(r, r.get_top_left()), 2);
}

TEST(rect, combines_as_areas_do)
{
    expect_for_any(rectangles_property, 300'000, [](auto & random) {
        return any_bytes(random, 41, std::string_view("\0\xFF", 2));
    });
    rect const a(0, 0, 4, 4), b(2, 0, 9, 4);
    for (auto const operation : {&rect::set_intersect, &rect::set_union, &rect::set_subtract}) {
        rect expected, first(a), second(b); // into either source
        (expected.*operation)(a, b);
        EXPECT_TRUE((first.*operation)(first, b) && (second.*operation)(a, second));
        EXPECT_TRUE(first == expected && second == expected) << expected;
    }
    rect r(0, 0, 4, 4);
    r &= rect(2, 2, 9, 9);
    EXPECT_EQ(r, rect(2, 2, 4, 4));
    r |= rect(8, 8, 9, 9);
    EXPECT_EQ(r, rect(2, 2, 9, 9));
}

template <typename value> std::string streamed(value const & object)
{
    std::ostringstream stream;
    stream << object;
    return stream.str();
}

TEST(geometry, prints_itself)
{
    EXPECT_EQ(size(least, most).to_string("%d x %ld"), "-2147483648 x 2147483647");
    EXPECT_EQ(rect(1, -2, 3, -4).to_string("%d %ld %03d %x"), "1 -2 003 fffffffc");
    // Numbers of 32 bits, whatever the modifier says.
    EXPECT_EQ(rect(-1, -2, -3, -4).to_string("%lx|%lld|%-5lu|100%%%hhd"),
              "ffffffff|-2|4294967293|100%-4");
    EXPECT_EQ(point(-1, 2).to_string("%2$*1$ld %1$llX"), "2 FFFFFFFF");
    EXPECT_THROW(rect().to_string(nullptr), zel::memory_exception);

    EXPECT_EQ(streamed(point(3, -4)), "{x 3, y -4}");
    EXPECT_EQ(streamed(size(3, 4)), "{cx 3, cy 4}");
    EXPECT_EQ(streamed(rect(0, 0, 10, 5)), "{left 0, top 0, right 10, bottom 5}");
}

} // namespace
