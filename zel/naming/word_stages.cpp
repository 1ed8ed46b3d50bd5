// SPDX-License-Identifier: MIT
#include "zel/naming/word_stages.h"

#include "zel/naming/common_words.h"
#include <cstring>

namespace zel::naming {
namespace {

// The lower-case letters of a text, one bit each.
constexpr std::uint32_t letters(std::string_view text)
{
    std::uint32_t bits = 0;
    for (char const c : text) {
        bits |= c >= 'a' && c <= 'z' ? 1U << (c & 31) : 0U;
    }
    return bits;
}

struct rewrite {
    std::string_view from;
    std::string_view to;
    std::uint32_t needs = letters(from); // a word without one of them cannot hold `from`
};

// Each applied to the whole word before the next.
constexpr rewrite combinations[] = {
    {"ae", "a"}, {"bour", "bor"}, {"leur", "lor"}, {"lour", "lor"}, {"ise", "ize"},
};

// The first that fits is the only one applied.
constexpr rewrite suffixes[] = {
    {"mption", "me"}, {"hood", ""}, {"ment", ""}, {"tion", ""}, {"sion", ""},
    {"ough", "o"},    {"ies", "y"}, {"gue", "g"}, {"cal", "c"}, {"nal", "n"},
    {"ed", ""},       {"es", ""},   {"er", ""},
};

std::uint32_t length(std::string_view text) noexcept
{
    return static_cast<std::uint32_t>(text.size());
}

// Puts `to`, which is no longer, in the place of `count` bytes.
void replace(word_span & word, std::uint32_t position, std::uint32_t count,
             std::string_view to) noexcept
{
    char * const place = word.text + position;
    std::memcpy(place, to.data(), to.size());
    std::memmove(place + to.size(), place + count, word.size - position - count);
    word.size -= count - length(to);
}

// Removes the bytes from position 2 on that are `surplus`, from the back, until `word` has at most
// `target` bytes. One pass to count and one to close up, instead of one for each byte that goes.
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
    std::uint32_t stay = found > wanted ? found - wanted : 0; // those nearest to the front
    std::uint32_t size = 2;
    char before = word.text[1]; // the neighbour as it was, also when it has gone
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
    std::uint32_t const present = letters(word.view());
    for (auto const & row : combinations) {
        // Looked up once: no byte that a row brings in ever belongs to a hit of a later row.
        if ((present & row.needs) != row.needs) {
            continue;
        }
        // The search goes on at the replacement, which may complete another hit: "aeee".
        std::size_t position = 0;
        while ((position = word.view().find(row.from, position)) != std::string_view::npos) {
            replace(word, static_cast<std::uint32_t>(position), length(row.from), row.to);
        }
    }
}

void truncate_common_suffix(word_span & word) noexcept
{
    for (auto const & row : suffixes) {
        std::uint32_t const suffix = length(row.from);
        if (word.size > suffix + 1 && word.text[word.size - 1] == row.from.back()
            && word.view().ends_with(row.from)) {
            replace(word, word.size - suffix, suffix, row.to);
            return;
        }
    }
}

bool abbreviate_common_words(word_span & word) noexcept
{
    std::uint32_t written = 0; // bytes of the result, never ahead of what is still to be read
    char * rest = word.text;
    std::uint32_t left = word.size;
    for (;;) {
        found_word const hit = find_common_word({rest, left});
        if (hit.row < 0) {
            if (rest == word.text) {
                return false;
            }
            break; // what follows a common word and is none itself goes
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
    // One byte too many is cut below and costs no vowel. A word that is short enough gives a
    // difference that wraps, and then no vowel has to go.
    if (word.size - target > 1) {
        remove_vowels(word, target);
    }
    if (word.size > target) {
        word.size = target;
    }
}

} // namespace zel::naming
