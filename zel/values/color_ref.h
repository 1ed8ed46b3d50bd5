// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>

namespace zel {

/// A colour in one 32-bit word: red in the lowest byte, then green, blue and a reserved byte.
///
/// The reserved byte is stored and compared like the others. Distance, brightness and the
/// comparison with a tolerance ignore it. A plain value: many readers or one writer.
/// \code
///     zel::color_ref const background(0x20, 0x20, 0x28, 0);
///     if (background.get_brightness() < 128) { use_light_text(); }
/// \endcode
class ZEL_API color_ref {
public:
    /// \param value  the word; by default all four bytes are 255.
    constexpr color_ref(std::uint32_t value = 0xFFFFFFFF) noexcept
        : value_(value)
    {
    }
    /// The word of these bytes; red is the lowest.
    constexpr color_ref(unsigned char red, unsigned char green, unsigned char blue,
                        unsigned char reserved) noexcept
        : value_(std::uint32_t(red) | std::uint32_t(green) << 8 | std::uint32_t(blue) << 16
                 | std::uint32_t(reserved) << 24)
    {
    }
    constexpr color_ref(color_ref const &) noexcept = default;

    /// For types that convert to a colour and to a number, such as a `variant`: uses the colour.
    template <typename T>
    requires requires(T const & source) { source.operator color_ref(); }
    explicit constexpr color_ref(T const & source)
        : value_(source.operator color_ref().value_)
    {
    }

    constexpr color_ref & operator=(color_ref const &) noexcept = default;
    /// Sets all four bytes from a word, or from a type that converts to one.
    constexpr color_ref & operator=(std::uint32_t value) noexcept
    {
        value_ = value;
        return *this;
    }
    template <typename T>
    requires requires(T const & source) { source.operator color_ref(); }
    constexpr color_ref & operator=(T const & source)
    {
        return *this = source.operator color_ref();
    }

    /// The word, which is what `==` compares.
    constexpr operator std::uint32_t() const noexcept { return value_; }
    /// The word, red in the lowest byte.
    constexpr std::uint32_t get_value() const noexcept { return value_; }

    /// One byte of the word.
    constexpr unsigned char get_red() const noexcept { return channel(0); }
    constexpr unsigned char get_green() const noexcept { return channel(8); }
    constexpr unsigned char get_blue() const noexcept { return channel(16); }
    constexpr unsigned char get_reserved() const noexcept { return channel(24); }

    /// Each replaces one byte and leaves the other three unchanged.
    constexpr void set_red(unsigned char red) noexcept { set_channel(0, red); }
    constexpr void set_green(unsigned char green) noexcept { set_channel(8, green); }
    constexpr void set_blue(unsigned char blue) noexcept { set_channel(16, blue); }
    constexpr void set_reserved(unsigned char reserved) noexcept { set_channel(24, reserved); }

    /// True if the colours are equal within a tolerance.
    /// \param tolerance  how much red, green and blue may each differ, in percent of 255. 0
    ///                   compares the whole words, including the reserved byte. A negative
    ///                   tolerance is never met.
    constexpr bool compare(color_ref const & other, std::int32_t tolerance) const noexcept
    {
        return compare(other.value_, tolerance);
    }
    constexpr bool compare(std::uint32_t other, std::int32_t tolerance) const noexcept
    {
        if (tolerance == 0) {
            return value_ == other;
        }
        for (int shift = 0; shift != 24; shift += 8) {
            int const d = difference(other, shift);
            if (std::int64_t(d < 0 ? -d : d) * 100 > std::int64_t(tolerance) * 255) {
                return false;
            }
        }
        return true;
    }

    /// The Euclidean distance in red, green and blue, in single precision: 0 to 441.67.
    constexpr double get_distance(color_ref const & other) const noexcept
    {
        return get_distance(other.value_);
    }
    constexpr double get_distance(std::uint32_t other) const noexcept
    {
        return square_root(sum_of_squares(other));
    }

    /// The whole part of the distance from black: 0 to 441.
    constexpr std::uint32_t get_brightness() const noexcept
    {
        return static_cast<std::uint32_t>(square_root(sum_of_squares(0)));
    }

private:
    constexpr unsigned char channel(int shift) const noexcept
    {
        return static_cast<unsigned char>(value_ >> shift);
    }
    constexpr void set_channel(int shift, unsigned char byte) noexcept
    {
        value_ = (value_ & ~(std::uint32_t(0xFF) << shift)) | std::uint32_t(byte) << shift;
    }
    constexpr int difference(std::uint32_t other, int shift) const noexcept
    {
        return int(value_ >> shift & 0xFF) - int(other >> shift & 0xFF);
    }
    constexpr int sum_of_squares(std::uint32_t other) const noexcept
    {
        int const red = difference(other, 0);
        int const green = difference(other, 8);
        int const blue = difference(other, 16);
        return red * red + green * green + blue * blue; // at most 195075, exact as a float
    }
    static constexpr float square_root(int sum) noexcept
    {
        if (!std::is_constant_evaluated()) {
            return std::sqrt(static_cast<float>(sum));
        }
        // Newton's method from above decreases until it has the root to one unit in the last place
        // of a double. No root of these sums lies that close to the middle of two floats.
        double root = sum < 1 ? 0.0 : sum;
        for (double next = root; sum > 0; root = next) {
            next = (root + sum / root) / 2;
            if (next >= root) {
                break;
            }
        }
        return static_cast<float>(root);
    }

    std::uint32_t value_;
};

static_assert(sizeof(color_ref) == 4 && std::is_trivially_copyable_v<color_ref>);

} // namespace zel

template <> struct std::hash<zel::color_ref> {
    std::size_t operator()(zel::color_ref color) const noexcept
    {
        return std::hash<std::uint32_t>()(color.get_value());
    }
};
