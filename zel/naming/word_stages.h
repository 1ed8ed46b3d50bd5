// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

namespace zel::naming {

/// How many bytes behind a word have to be readable; their values do not matter.
constexpr std::uint32_t readable_behind = 18;

/// A word that is edited in place. No stage makes it longer. `readable_behind` bytes follow it.
struct word_span {
    char * text;
    std::uint32_t size; // bytes

    std::string_view view() const noexcept { return {text, size}; }
};

constexpr char lower(char c) noexcept
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

constexpr char upper(char c) noexcept
{
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

/// One of "AEIOUYaeiouy".
constexpr bool vowel(char c) noexcept
{
    constexpr std::uint32_t bits = 1U << ('A' & 31) | 1U << ('E' & 31) | 1U << ('I' & 31)
        | 1U << ('O' & 31) | 1U << ('U' & 31) | 1U << ('Y' & 31);
    auto const byte = static_cast<unsigned char>(c);
    return byte - 0x40U < 0x40U && (bits >> (byte & 31U) & 1U) != 0;
}

/// The stages; each implements the member of `name_generator` with the same name.
void optimize_combinations(word_span & word) noexcept;
void truncate_common_suffix(word_span & word) noexcept;
bool abbreviate_common_words(word_span & word) noexcept;
void remove_vowels(word_span & word, std::uint32_t target) noexcept;

/// All stages in their order.
void abbreviate_word(word_span & word, std::uint32_t target) noexcept;

} // namespace zel::naming
