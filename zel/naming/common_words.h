// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace zel::naming {

/// A word in lower case, sometimes only its stem, and what stands for it in a short name.
struct common_word {
    std::string_view word;
    std::string_view abbreviation; // never longer than the word
};

/// What the table has for a word.
struct found_word {
    int row; ///< -1 for nothing
    bool whole; ///< the row's word equals the one looked for; else one of the two begins the other
};

/// The row of the word itself, or else the one that a halving search meets first among those that
/// begin it or that it begins: neither the longest nor the first such row, "pointers" finds
/// "point". At most eight rows are compared and nothing is allocated.
found_word find_common_word(std::string_view word) noexcept;

/// \param row  as `find_common_word` gave it.
common_word const & common_word_at(int row) noexcept;

} // namespace zel::naming
