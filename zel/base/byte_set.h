// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace zel {

/// A set of bytes, one bit each.
class byte_set {
public:
    constexpr byte_set() noexcept = default;
    constexpr explicit byte_set(std::string_view members) noexcept { add(members); }

    constexpr void add(std::string_view members) noexcept
    {
        for (char const c : members) {
            words_[word_of(c)] |= bit_of(c);
        }
    }
    constexpr void erase(char c) noexcept { words_[word_of(c)] &= ~bit_of(c); }

    constexpr bool contains(char c) const noexcept { return (words_[word_of(c)] & bit_of(c)) != 0; }

private:
    static constexpr unsigned int word_of(char c) noexcept
    {
        return static_cast<unsigned char>(c) / 64U;
    }
    static constexpr std::uint64_t bit_of(char c) noexcept
    {
        return std::uint64_t{1} << static_cast<unsigned char>(c) % 64U;
    }

    std::array<std::uint64_t, 4> words_{};
};

} // namespace zel
