// SPDX-License-Identifier: MIT
// Rectangles against arithmetic in 64 bits, point by point at the edges where they differ.
#include "zel/values/rect.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

using zel::point;
using zel::rect;

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

bool has(rect const & r, std::int64_t x, std::int64_t y)
{
    return r.left <= x && x < r.right && r.top <= y && y < r.bottom;
}

std::uint64_t area(rect const & r)
{
    return r.left < r.right && r.top < r.bottom
        ? static_cast<std::uint64_t>(std::int64_t{r.right} - r.left)
            * static_cast<std::uint64_t>(std::int64_t{r.bottom} - r.top)
        : 0;
}

std::int32_t cut(std::int64_t value) { return static_cast<std::int32_t>(value); } // to 32 bits

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    std::int32_t numbers[10]{};
    std::memcpy(numbers, data, std::min(size, sizeof numbers));
    if (size > sizeof numbers && data[sizeof numbers] % 2 == 0) {
        for (std::int32_t & number : numbers) {
            number %= 8; // close together
        }
    }
    rect const a(numbers[0], numbers[1], numbers[2], numbers[3]);
    rect const b(numbers[4], numbers[5], numbers[6], numbers[7]);
    std::int64_t const dx = numbers[8];
    std::int64_t const dy = numbers[9];

    rect common, both, rest;
    require(common.set_intersect(a, b) == (area(common) != 0) && (a & b) == common);
    require(both.set_union(a, b) == (area(both) != 0) && (a | b) == both);
    require(rest.set_subtract(a, b) == (area(rest) != 0));
    require(area(common) != 0 || common.is_null());
    require(area(both) != 0 || both.is_null());

    // What a combination is can only change at the edges of the two.
    std::int64_t const xs[] = {a.left, a.right, b.left, b.right};
    std::int64_t const ys[] = {a.top, a.bottom, b.top, b.bottom};
    bool is_a_without_b = true;
    for (std::int64_t const edge_x : xs) {
        for (std::int64_t const edge_y : ys) {
            for (int corner = 0; corner < 4; ++corner) {
                std::int64_t const x = edge_x - (corner & 1);
                std::int64_t const y = edge_y - (corner >> 1);
                require(has(common, x, y) == (has(a, x, y) && has(b, x, y)));
                require(!(has(a, x, y) || has(b, x, y)) || has(both, x, y));
                is_a_without_b &= has(rest, x, y) == (has(a, x, y) && !has(b, x, y));
            }
        }
    }
    std::uint64_t const left = area(a) - area(common);
    require(is_a_without_b ? area(rest) == left : rest == a);
    // The smallest around both: each edge is one of theirs.
    require(std::count(xs, xs + 4, both.left) != 0 || both.is_null());
    require(area(a) == 0 || area(b) == 0
            || both
                == rect(std::min(a.left, b.left), std::min(a.top, b.top),
                        std::max(a.right, b.right), std::max(a.bottom, b.bottom)));

    rect moved = a;
    moved.offset(cut(dx), cut(dy));
    require(moved
            == rect(cut(a.left + dx), cut(a.top + dy), cut(a.right + dx), cut(a.bottom + dy)));
    require(moved - point(cut(dx), cut(dy)) == a);
    rect grown = a;
    grown.inflate(cut(dx), cut(dy));
    require(grown
            == rect(cut(a.left - dx), cut(a.top - dy), cut(a.right + dx), cut(a.bottom + dy)));
    auto const changed = [&](auto change) {
        rect result = a;
        change(result);
        return result;
    };
    point const p(cut(dx), cut(dy));
    zel::size const z(cut(dx), cut(dy));
    rect const out = b,
               wider(cut(std::int64_t{a.left} - b.left), cut(std::int64_t{a.top} - b.top),
                     cut(std::int64_t{a.right} + b.right), cut(std::int64_t{a.bottom} + b.bottom));
    for (rect const & each : {changed([&](rect & r) { r.inflate(z); }),
                              changed([&](rect & r) { r += rect(z.cx, z.cy, z.cx, z.cy); })}) {
        require(each == grown);
    }
    for (rect const & each :
         {changed([&](rect & r) { r += out; }), changed([&](rect & r) { r.inflate(out); }),
          changed([&](rect & r) { r.inflate(b.left, b.top, b.right, b.bottom); })}) {
        require(each == wider);
    }
    rect back = wider;
    back -= out;
    require(back == a);
    back = wider;
    back.deflate(out);
    require(back == a);
    back = wider;
    back.deflate(b.left, b.top, b.right, b.bottom);
    require(back == a);
    back = grown;
    back.deflate(z);
    require(back == a);
    grown.deflate(cut(dx), cut(dy));
    require(grown == a);
    for (rect const & each :
         {changed([&](rect & r) { r.offset(p); }), changed([&](rect & r) { r.offset(z); }),
          changed([&](rect & r) { r += p; }), changed([&](rect & r) { r += z; }), a + p, a + z}) {
        require(each == moved && each - p == a && each - z == a);
        require(changed([&](rect & r) { (r = each) -= p; }) == a);
        require(changed([&](rect & r) { (r = each) -= z; }) == a);
    }
    require(a.get_width() == cut(std::int64_t{a.right} - a.left));
    require(
        a.get_center()
        == point(cut(std::int64_t{a.left} + a.right) / 2, cut(std::int64_t{a.top} + a.bottom) / 2));
    rect normal = a;
    normal.normalize();
    require(normal.left <= normal.right && normal.top <= normal.bottom);
    require(area(normal) >= area(a)
            && a.is_point_in_rect(point(cut(dx), cut(dy))) == has(a, dx, dy));
    return 0;
}
