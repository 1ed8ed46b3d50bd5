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

/// Finds the row that is equal to the word. If there is none, finds the first row on the way of the
/// binary search that begins the word or that the word begins. This is not always the longest or
/// the first such row: "pointers" finds "point". Compares at most eight rows and allocates nothing.
found_word find_common_word(std::string_view word) noexcept;

/// \param row  as `find_common_word` gave it.
common_word const & common_word_at(int row) noexcept;

} // namespace zel::naming
