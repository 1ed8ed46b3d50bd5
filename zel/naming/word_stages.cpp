// SPDX-License-Identifier: MIT
#include "zel/naming/word_stages.h"

#include "zel/base/block16.h"
#include "zel/naming/common_words.h"
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <iterator>

namespace zel::naming {
namespace {

struct rewrite {
    std::string_view from;
    std::string_view to;
};

// Each pair is applied to the whole word before the next one.
constexpr rewrite combinations[] = {
    {"ae", "a"}, {"bour", "bor"}, {"leur", "lor"}, {"lour", "lor"}, {"ise", "ize"},
};

// Only the first matching suffix is replaced.
constexpr rewrite suffixes[] = {
    {"mption", "me"}, {"hood", ""}, {"ment", ""}, {"tion", ""}, {"sion", ""},
    {"ough", "o"},    {"ies", "y"}, {"gue", "g"}, {"cal", "c"}, {"nal", "n"},
    {"ed", ""},       {"es", ""},   {"er", ""},
};

// The suffixes grouped by their last letter. One comparison of numbers decides about most of them.
struct suffix_tail {
    std::uint32_t bytes = 0; // the last four bytes, or fewer with zeros in front
    std::uint32_t mask = 0; // selects the bytes of the suffix; 0 ends the group
    std::uint8_t row = 0;
};
constexpr std::size_t most_of_a_letter = 3;
constexpr auto tails = [] {
    std::array<std::array<suffix_tail, most_of_a_letter + 1>, 32> result{};
    for (std::size_t row = 0; row < std::size(suffixes); ++row) {
        std::string_view const suffix = suffixes[row].from;
        suffix_tail * tail = result[suffix.back() & 31].data();
        while (tail->mask != 0) {
            ++tail;
        }
        std::size_t const size = std::min(suffix.size(), sizeof tail->bytes);
        tail->row = static_cast<std::uint8_t>(row);
        tail->mask = 0xFFFFFFFFU << 8 * (4 - size);
        for (std::size_t i = 0; i < size; ++i) {
            tail->bytes |= std::uint32_t{static_cast<unsigned char>(suffix[suffix.size() - 1 - i])}
                << 8 * (3 - i);
        }
    }
    return result;
}();
static_assert(std::all_of(tails.begin(), tails.end(),
                          [](auto const & of_letter) { return of_letter.back().mask == 0; }));

// True if the word may contain "ae", "ise", "eur" or "our". Bytes behind the word may be mistaken
// for part of one.
bool may_hold_combination(word_span const & word) noexcept
{
    auto const is = [](block16 const & text, char c) { return equal(text, block16::filled(c)); };
    for (std::uint32_t i = 0; i < word.size; i += 16) {
        auto const first = block16::load(word.text + i);
        auto const second = block16::load(word.text + i + 1);
        auto const third = block16::load(word.text + i + 2);
        std::uint32_t const hits
            = ((is(first, 'a') & is(second, 'e'))
               | (is(first, 'i') & is(second, 's') & is(third, 'e'))
               | ((is(first, 'e') | is(first, 'o')) & is(second, 'u') & is(third, 'r')))
                  .sign_bits();
        if ((word.size - i >= 16 ? hits : hits & ((1U << (word.size - i)) - 1)) != 0) {
            return true;
        }
    }
    return false;
}

std::uint32_t length(std::string_view text) noexcept
{
    return static_cast<std::uint32_t>(text.size());
}

// Replaces `count` bytes by `to`, which is not longer.
void replace(word_span & word, std::uint32_t position, std::uint32_t count,
             std::string_view to) noexcept
{
    char * const place = word.text + position;
    std::memcpy(place, to.data(), to.size());
    std::memmove(place + to.size(), place + count, word.size - position - count);
    word.size -= count - length(to);
}

// Removes bytes for which `surplus` returns true, from the back and not before position 2, until
// the word has at most `target` bytes. One pass counts them and one closes the gaps, instead of one
// pass for each byte.
template <typename Surplus>
void remove_from_back(word_span & word, std::uint32_t target, Surplus surplus) noexcept
{
    if (word.size <= target || word.size <= 2) {
        return;
    }
    std::uint32_t found = 0;
    for (std::uint32_t i = 2; i < word.size; ++i) {
        found += surplus(word.text[i - 1], word.text[i]);
    }
    if (found == 0) {
        return;
    }
    std::uint32_t const wanted = word.size - target;
    std::uint32_t stay
        = found > wanted ? found - wanted : 0; // how many to keep, those nearest to the front
    std::uint32_t size = 2;
    char before = word.text[1]; // the previous byte, even if it was removed
    for (std::uint32_t i = 2; i < word.size; ++i) {
        char const c = word.text[i];
        bool const hit = surplus(before, c);
        before = c;
        bool const goes = hit && stay == 0;
        stay -= hit && stay != 0;
        word.text[size] = c;
        size += !goes;
    }
    word.size = size;
}

} // namespace

void optimize_combinations(word_span & word) noexcept
{
    if (!may_hold_combination(word)) {
        return;
    }
    for (auto const & row : combinations) {
        // Searches again from the replacement, because it may complete another match: "aeee".
        std::size_t position = 0;
        while ((position = word.view().find(row.from, position)) != std::string_view::npos) {
            replace(word, static_cast<std::uint32_t>(position), length(row.from), row.to);
        }
    }
}

void truncate_common_suffix(word_span & word) noexcept
{
    static_assert(std::endian::native
                  == std::endian::little); // the last letter is the highest byte
    std::uint32_t tail = 0;
    if (word.size < sizeof tail) {
        return; // two bytes must stay in front of a suffix, and the shortest suffixes have two
    }
    std::memcpy(&tail, word.text + word.size - sizeof tail, sizeof tail);
    for (auto const * it = tails[tail >> 24 & 31].data(); it->mask != 0; ++it) {
        rewrite const & row = suffixes[it->row];
        std::uint32_t const suffix = length(row.from);
        if (((tail ^ it->bytes) & it->mask) == 0 && word.size > suffix + 1
            && (suffix <= 4 || word.view().ends_with(row.from))) {
            replace(word, word.size - suffix, suffix, row.to);
            return;
        }
    }
}

bool abbreviate_common_words(word_span & word) noexcept
{
    std::uint32_t written = 0; // length of the result, which never overtakes the unread rest
    char * rest = word.text;
    std::uint32_t left = word.size;
    for (;;) {
        found_word const hit = find_common_word({rest, left});
        if (hit.row < 0) {
            if (rest == word.text) {
                return false;
            }
            break; // the rest is not a common word and is dropped
        }
        auto const & found = common_word_at(hit.row);
        if (!hit.whole && left <= found.word.size()) {
            std::memmove(word.text + written, rest, left);
            written += left;
            break;
        }
        std::memcpy(word.text + written, found.abbreviation.data(), found.abbreviation.size());
        written += length(found.abbreviation);
        if (hit.whole) {
            break;
        }
        rest += found.word.size();
        left -= length(found.word);
    }
    word.size = written;
    return true;
}

void remove_vowels(word_span & word, std::uint32_t target) noexcept
{
    while (word.size > 2 && word.size > target && vowel(word.text[word.size - 1])) {
        --word.size;
    }
    remove_from_back(word, target, [](char before, char c) { return vowel(c) && vowel(before); });
    remove_from_back(word, target, [](char, char c) { return vowel(c); });
}

void abbreviate_word(word_span & word, std::uint32_t target) noexcept
{
    if (word.size > target) {
        optimize_combinations(word);
    }
    if (word.size > target) {
        truncate_common_suffix(word);
    }
    if (abbreviate_common_words(word)) {
        return;
    }
    // A word that is one byte too long keeps its vowels and is cut below. If the word is short
    // enough, the difference wraps to a large number, and `remove_vowels` does nothing.
    if (word.size - target > 1) {
        remove_vowels(word, target);
    }
    if (word.size > target) {
        word.size = target;
    }
}

} // namespace zel::naming
