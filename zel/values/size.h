// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/platform/rectangles.h"
#include "zel/text/string.h"
#include <concepts>
#include <cstdint>
#include <iosfwd>

namespace zel {

/// A width and a height, laid out as a `t_size`.
///
/// Arithmetic wraps around at 32 bits; extents may be negative. A plain value: many readers or one
/// writer.
/// \code
///     zel::size window(640, 480);
///     window -= zel::size(20, 40);    // the frame
/// \endcode
class ZEL_API size : public t_size {
public:
    /// An extent, or the extent from 0, 0 to a place.
    constexpr size(std::int32_t width = 0, std::int32_t height = 0) noexcept
        : t_size{width, height}
    {
    }
    constexpr size(t_point const & place) noexcept
        : t_size{place.x, place.y}
    {
    }
    constexpr size(t_size const & other) noexcept
        : t_size(other)
    {
    }
    constexpr size(size const &) noexcept = default;
    constexpr size & operator=(size const &) noexcept = default;

    /// Compares with a `t_size` or a class derived from it, but not with a type that only converts
    /// to `size`, such as a number.
    template <std::derived_from<t_size> T> constexpr bool operator==(T const & other) const noexcept
    {
        return cx == other.cx && cy == other.cy;
    }

    /// Add and subtract; the result may be negative.
    constexpr void operator+=(t_size by) noexcept
    {
        cx = platform::wrapping_sum(cx, by.cx);
        cy = platform::wrapping_sum(cy, by.cy);
    }
    constexpr void operator-=(t_size by) noexcept
    {
        cx = platform::wrapping_difference(cx, by.cx);
        cy = platform::wrapping_difference(cy, by.cy);
    }

    /// \param format  a printf format with one conversion for `cx`, then one for `cy`. Both are
    ///                numbers of 32 bits, with `l` as without.
    /// \throws memory_exception  `null_pointer` for a null format.
    string to_string(char const * format);

    /// Writes for example "{cx 3, cy 4}".
    friend ZEL_API std::ostream & operator<<(std::ostream & stream, size const & value);
};

static_assert(sizeof(size) == sizeof(t_size) && std::is_standard_layout_v<size>);

} // namespace zel
