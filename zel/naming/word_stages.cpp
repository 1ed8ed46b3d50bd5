// SPDX-License-Identifier: MIT
#include "zel/naming/word_stages.h"

#include "zel/naming/common_words.h"
#include <cstring>

namespace zel::naming {
namespace {

struct rewrite {
    std::string_view from;
    std::string_view to;
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

constexpr std::uint32_t vowel_bits = [] {
    std::uint32_t bits = 0;
    for (char const c : std::string_view("AEIOUY")) {
        bits |= 1U << (c & 31);
    }
    return bits;
}();

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

void erase(word_span & word, std::uint32_t position) noexcept { replace(word, position, 1, {}); }

} // namespace

bool vowel(char c) noexcept
{
    auto const byte = static_cast<unsigned char>(c);
    return byte >= 'A' && byte < 0x80 && (vowel_bits >> (byte & 31U) & 1U) != 0;
}

void optimize_combinations(word_span & word) noexcept
{
    for (auto const & row : combinations) {
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
        if (word.size > suffix + 1 && word.view().ends_with(row.from)) {
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
        std::string_view const piece(rest, left);
        int row = find_common_word(piece, match::whole);
        bool const whole = row >= 0;
        if (!whole) {
            row = find_common_word(piece, match::prefix);
            if (row < 0) {
                if (rest == word.text) {
                    return false;
                }
                break; // what follows a common word and is none itself goes
            }
        }
        auto const & found = common_word_at(row);
        if (!whole && left <= found.word.size()) {
            std::memmove(word.text + written, rest, left);
            written += left;
            break;
        }
        std::memcpy(word.text + written, found.abbreviation.data(), found.abbreviation.size());
        written += length(found.abbreviation);
        if (whole) {
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
    // The first two bytes always stay; positions below 2 are only passed over.
    for (std::uint32_t i = word.size; i > 2 && word.size > target && vowel(word.text[i - 1]); --i) {
        erase(word, i - 1);
    }
    for (std::uint32_t i = word.size; i > 2 && word.size > target; --i) {
        if (vowel(word.text[i - 1]) && vowel(word.text[i - 2])) {
            erase(word, i - 1);
        }
    }
    for (std::uint32_t i = word.size; i > 2 && word.size > target; --i) {
        if (vowel(word.text[i - 1])) {
            erase(word, i - 1);
        }
    }
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
