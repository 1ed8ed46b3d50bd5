// SPDX-License-Identifier: MIT
#include "zel/values/color_ref.h"

#include <gtest/gtest.h>
#include <utility>

namespace {

using zel::color_ref;

constexpr color_ref changed(void (color_ref::*set)(unsigned char) noexcept)
{
    color_ref color(0x44332211);
    (color.*set)(0x7F);
    return color;
}

// The class works in constant expressions, so most of it is tested by being compiled.
static_assert(color_ref().get_value() == 0xFFFFFFFF && color_ref().get_brightness() == 441);
static_assert(color_ref(0x11, 0x22, 0x33, 0x44) == color_ref(0x44332211));
static_assert(color_ref(0x44332211).get_red() == 0x11 && color_ref(0x44332211).get_green() == 0x22);
static_assert(color_ref(0x44332211).get_blue() == 0x33
              && color_ref(0x44332211).get_reserved() == 0x44);
static_assert(changed(&color_ref::set_red) == 0x4433227F);
static_assert(changed(&color_ref::set_green) == 0x44337F11);
static_assert(changed(&color_ref::set_blue) == 0x447F2211);
static_assert(changed(&color_ref::set_reserved) == 0x7F332211);

TEST(color_ref, compares_with_a_tolerance_in_percent)
{
    // clang-format off
    struct { std::uint32_t a, b; std::int32_t tolerance; bool alike; } const rows[] = {
        {0x01FFFFFF, 0x02FFFFFF, 0, false}, // the reserved byte counts here only
        {0x01FFFFFF, 0x02FFFFFF, 1, true}, {0x000002, 0x000000, 1, true},
        {0x000003, 0x000000, 1, false}, {0x000019, 0x000000, 10, true},
        {0x00001A, 0x000000, 10, false}, {0x330000, 0x000000, 20, true}, // exactly 20 percent
        {0x340000, 0x000000, 20, false}, {0x003400, 0x000000, 20, false},
        {0x000000, 0xFFFFFF, 100, true}, {0x000000, 0x000000, -1, false},
        {0x000000, 0xFFFFFF, 0x7FFFFFFF, true},
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(testing::Message() << row.a << ' ' << row.b << ' ' << row.tolerance);
        EXPECT_EQ(color_ref(row.a).compare(row.b, row.tolerance), row.alike);
        EXPECT_EQ(color_ref(row.b).compare(color_ref(row.a), row.tolerance), row.alike);
    }
}

TEST(color_ref, measures_in_single_precision_at_run_time_as_in_constants)
{
    static_assert(color_ref(0xFFFFFF).get_distance(0u) == 441.6729431152344);
    static_assert(color_ref(0x00010001).get_distance(color_ref(0xFF000000)) == 1.4142135381698608);
    std::pair<std::uint32_t, double> const volatile rows[] // from black
        = {{0xFFFFFF, 441.6729431152344},
           {0xFF000000, 0},
           {0x10001, 1.4142135381698608},
           {0xFF, 255}};
    for (auto const & row : rows) {
        EXPECT_EQ(color_ref(0xFF000000).get_distance(color_ref(row.first)), row.second);
        EXPECT_EQ(color_ref(row.first).get_brightness(), unsigned(row.second));
    }
}

} // namespace
