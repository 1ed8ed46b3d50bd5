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
/// A name is parted into words at capitals and delimiters; each word passes through letter
/// rewrites, a suffix table, a table of 128 common words and the removal of its vowels, the harder
/// the larger its share of the name; the words are joined with capitals and cut to the length.
/// Text is bytes and nothing depends on the locale: only ASCII letters have a case. Two names may
/// get one abbreviation. The same name and length always give the same answer, and any number of
/// threads may ask one object at once. Exhausted memory raises `std::bad_alloc`, a name of 4 GiB or
/// more `std::length_error`.
/// \code
///     zel::name_generator shortener;
///     shortener.abbreviate("HorizontalSyncPulseWidth", 12);   // "HorznSynPulW"
/// \endcode
class ZEL_API name_generator {
public:
    /// \param delimiters  bytes that part words. Only the underscore vanishes from the words, any
    ///                    other delimiter stays as the first byte of the word that it opens.
    /// \param parameter1  kept and copied like the other two; none of them influences a result.
    name_generator(string const & delimiters = " _-.,:/\\+*=&?!@$#", std::uint32_t parameter1 = 4,
                   std::uint32_t parameter2 = 50, std::uint32_t parameter3 = 3);
    name_generator(name_generator const &) = default;
    name_generator & operator=(name_generator const &) = default;
    ~name_generator() = default;

    /// The whole way for a name; one of at most `target` bytes comes back untouched.
    /// \param target  in bytes.
    /// \returns at most `target` bytes; empty for a single word that no table knows.
    string abbreviate(string const & name, std::uint32_t target) const;

    /// The stages for one word, which is expected in lower case.
    /// \param target  in bytes.
    /// \returns at most `target` bytes, unless the word counts as a common one.
    string abbreviateWord(string const & word, std::uint32_t target) const;

protected:
    /// Parts `name` into words in lower case.
    /// \param words  cleared first; a word may be empty.
    /// \returns how many there are.
    int findWords(string const & name, std::vector<string> & words) const;

    /// Puts the table's abbreviation in the place of a common word at the beginning of `word`;
    /// what follows it stays only if it is common too.
    /// \returns whether `word` counts as common. A beginning of one of the table's words does so
    ///          as well, and stays as it is.
    bool abbreviateCommonWords(string & word) const;

    /// Rewrites letter combinations: "colour" becomes "color".
    void optimizeCombinations(string & word) const;
    /// Shortens one ending: "cities" becomes "city". At least two bytes stay in front of it.
    void truncateCommonSuffix(string & word) const;
    /// Removes vowels behind the first two bytes until `word` has at most `target` bytes: those at
    /// its end, then of each run all but the first, then all others, from the back each time.
    void removeVowels(string & word, std::uint32_t target) const;
    void truncate(string & word, std::uint32_t target) const;
    /// Joins the words, each with its first letter made a capital.
    string constructExpression(std::vector<string> const & words) const;

    /// ASCII letters alone.
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
