// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/text/string.h"
#include <cstdint>
#include <vector>

namespace zel {

/// Shortens identifiers to a length in such a way that a reader can still guess them:
/// "temperature_offset" becomes "TempOfs".
///
/// A name is split into words at capitals and delimiters. Each word passes through letter rewrites,
/// a suffix table, a table of 128 common words and the removal of its vowels; words with a larger
/// share of the name are shortened more. Then the words are joined with capitals and cut to the
/// length. Text is bytes and nothing depends on the locale: only ASCII letters have a case. Two
/// names may get the same abbreviation. The same name and length always give the same result, and
/// any number of threads may use one object at once. Exhausted memory raises `std::bad_alloc`, a
/// name of 4 GiB or more `std::length_error`.
/// \code
///     zel::name_generator shortener;
///     shortener.abbreviate("HorizontalSyncPulseWidth", 12);   // "HorznSynPulW"
/// \endcode
class ZEL_API name_generator {
public:
    /// \param delimiters  bytes that separate words. Only the underscore is removed; any other
    ///                    delimiter stays as the first byte of the word that follows it.
    /// \param parameter1  stored and copied like the other two; none of them influences a result.
    name_generator(string const & delimiters = " _-.,:/\\+*=&?!@$#", std::uint32_t parameter1 = 4,
                   std::uint32_t parameter2 = 50, std::uint32_t parameter3 = 3);
    name_generator(name_generator const &) = default;
    name_generator & operator=(name_generator const &) = default;
    ~name_generator() = default;

    /// Shortens a name. A name of at most `target` bytes is returned unchanged.
    /// \param target  in bytes.
    /// \returns at most `target` bytes; empty for a single word that is in no table.
    string abbreviate(string const & name, std::uint32_t target) const;

    /// Applies the stages to one word, which has to be in lower case.
    /// \param target  in bytes.
    /// \returns at most `target` bytes, unless the word counts as a common one.
    string abbreviateWord(string const & word, std::uint32_t target) const;

protected:
    /// Splits `name` into words in lower case.
    /// \param words  cleared first; a word may be empty.
    /// \returns how many there are.
    int findWords(string const & name, std::vector<string> & words) const;

    /// Replaces a common word at the beginning of `word` by the table's abbreviation. What follows
    /// it stays only if it is a common word too.
    /// \returns true if `word` counts as common. The beginning of a word of the table does so too,
    ///          and stays unchanged.
    bool abbreviateCommonWords(string & word) const;

    /// Rewrites letter combinations: "colour" becomes "color".
    void optimizeCombinations(string & word) const;
    /// Shortens one suffix: "cities" becomes "city". At least two bytes stay before it.
    void truncateCommonSuffix(string & word) const;
    /// Removes vowels after the first two bytes until `word` has at most `target` bytes: first
    /// those at its end, then in each run of vowels all but the first, then all others; each time
    /// from the back.
    void removeVowels(string & word, std::uint32_t target) const;
    void truncate(string & word, std::uint32_t target) const;
    /// Joins the words, each with its first letter made a capital.
    string constructExpression(std::vector<string> const & words) const;

    /// Changes ASCII letters only.
    char toLower(char c) const;
    void toLower(string & text) const;
    void toUpper(string & text) const;
    /// One of "AEIOUYaeiouy"; every other byte is a consonant.
    bool is_vowel(char c) const;
    bool is_consonant(char c) const;

private:
    char toUpper(char c) const;

    // Part of the value, but never read.
    [[maybe_unused]] std::uint32_t parameter1_;
    [[maybe_unused]] std::uint32_t parameter3_;
    [[maybe_unused]] std::uint32_t parameter2_;
    string delimiters_;
};

} // namespace zel
