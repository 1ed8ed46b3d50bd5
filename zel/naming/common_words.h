// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace zel::naming {

/// A word in lower case, sometimes only its stem, and its abbreviation.
struct common_word {
    std::string_view word;
    std::string_view abbreviation; // never longer than the word
};

/// The result of a search in the table.
struct found_word {
    int row; ///< -1 for nothing
    bool whole; ///< true: the row's word equals the wanted one; false: one begins with the other
};

/// Finds the row that equals the word. If there is none, finds the first row on the path of the
/// binary search that begins the word or that the word begins. This is not always the longest or
/// the first such row: "pointers" finds "point". Compares at most eight rows and allocates nothing.
found_word find_common_word(std::string_view word) noexcept;

/// \param row  from `find_common_word`.
common_word const & common_word_at(int row) noexcept;

} // namespace zel::naming
