// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/text/string.h"
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <type_traits>

namespace zel {

/// A unique 128-bit identifier: a UUID.
///
/// It has the layout of the platform's GUID: three numbers in the host's byte order, then eight
/// bytes. A plain value: many readers or one writer.
/// \code
///     zel::uid session;               // all zero
///     session.create();
///     log(session.to_string());       // {0123ABCD-4567-49ab-8DEF-0123456789AB}
/// \endcode
class ZEL_API uid {
public:
    /// All zero, which no created identifier is.
    constexpr uid() noexcept = default;
    constexpr uid(std::uint32_t data1, std::uint16_t data2, std::uint16_t data3,
                  std::array<unsigned char, 8> const & data4) noexcept
        : data1_(data1)
        , data2_(data2)
        , data3_(data3)
        , data4_(data4)
    {
    }
    constexpr uid(uid const &) noexcept = default;
    constexpr uid & operator=(uid const &) noexcept = default;

    /// Becomes a new random identifier, version 4 of RFC 4122. Its 122 random bits come from the
    /// kernel. All identifiers differ, across threads and processes, including both processes after
    /// a `fork`. All zero if the host provides no random bytes.
    void create() noexcept;

    /// Byte by byte.
    constexpr bool operator==(uid const & other) const noexcept
    {
        return in_memory() == other.in_memory();
    }

    /// Orders by the bytes in memory; the first difference decides. That is not the order of the
    /// numbers, whose lowest byte comes first.
    constexpr bool operator<(uid const & other) const noexcept
    {
        return in_memory() < other.in_memory();
    }
    constexpr bool operator>(uid const & other) const noexcept { return other < *this; }
    constexpr bool operator<=(uid const & other) const noexcept { return !(other < *this); }
    constexpr bool operator>=(uid const & other) const noexcept { return !(*this < other); }

    /// For example "{0123ABCD-4567-89ab-CDEF-0123456789AB}": 38 bytes; only the third group has
    /// small letters.
    string to_string() const;

    /// Writes the text of `to_string`.
    friend ZEL_API std::ostream & operator<<(std::ostream & stream, uid const & value);

private:
    friend struct std::hash<uid>;

    constexpr std::array<unsigned char, 16> in_memory() const noexcept
    {
        return std::bit_cast<std::array<unsigned char, 16>>(*this);
    }

    std::uint32_t data1_ = 0;
    std::uint16_t data2_ = 0;
    std::uint16_t data3_ = 0;
    std::array<unsigned char, 8> data4_{};
};

static_assert(sizeof(uid) == 16
              && std::is_standard_layout_v<uid> && std::is_trivially_copyable_v<uid>);

} // namespace zel

template <> struct std::hash<zel::uid> {
    std::size_t operator()(zel::uid const & value) const noexcept
    {
        // Identifiers that are not random may differ in only a few bits anywhere.
        auto const words = std::bit_cast<std::array<std::uint64_t, 2>>(value);
        std::uint64_t const mixed
            = (words[0] ^ std::rotl(words[1] * 0x9E3779B97F4A7C15, 32)) * 0x9E3779B97F4A7C15;
        return mixed ^ mixed >> 32;
    }
};
