// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

namespace zel::naming {

/// A word in lower case, sometimes only its stem, and what stands for it in a short name.
struct common_word {
    std::string_view word;
    std::string_view abbreviation; // never longer than the word
};

/// How a row is compared with a word.
enum class match : std::uint8_t {
    whole, ///< the two texts are equal
    prefix, ///< one begins with the other
};

/// The row of the table that a halving search meets first, or -1. With `match::prefix` that is
/// neither the longest nor the first row that fits: "pointers" finds "point".
int find_common_word(std::string_view word, match how) noexcept;

/// \param row  as `find_common_word` gave it.
common_word const & common_word_at(int row) noexcept;

} // namespace zel::naming
