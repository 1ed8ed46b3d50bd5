// SPDX-License-Identifier: MIT
// The abbreviator against a plain reading of its stages, which erases one byte at a time.
#include "zel/naming/common_words.h"
#include "zel/naming/name_generator.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
bool vowel(char c) { return std::string_view("AEIOUYaeiouy").find(c) != std::string_view::npos; }

int find_row(std::string const & word, bool prefix)
{
    int low = 0;
    int high = 128;
    int probe = 64;
    auto const order = [&](int row) {
        std::string_view const other = zel::naming::common_word_at(row).word;
        return prefix ? word.substr(0, other.size()).compare(other.substr(0, word.size()))
                      : word.compare(other);
    };
    for (;; probe = low + (high - low) / 2) {
        int const way = order(probe);
        if (way == 0) {
            return probe;
        }
        (way < 0 ? high : low) = probe;
        if (high - low <= 1) {
            return high == 1 && order(0) == 0 ? 0 : -1;
        }
    }
}

bool rewrite_common(std::string & word)
{
    int row = find_row(word, false);
    if (row >= 0) {
        word = zel::naming::common_word_at(row).abbreviation;
        return true;
    }
    row = find_row(word, true);
    if (row < 0) {
        return false;
    }
    auto const & found = zel::naming::common_word_at(row);
    if (word.size() > found.word.size()) {
        std::string tail = word.substr(found.word.size());
        word = found.abbreviation;
        if (rewrite_common(tail)) {
            word += tail;
        }
    }
    return true;
}

void rewrite_combinations(std::string & word)
{
    constexpr std::string_view pairs[][2]
        = {{"ae", "a"}, {"bour", "bor"}, {"leur", "lor"}, {"lour", "lor"}, {"ise", "ize"}};
    for (auto const & [from, to] : pairs) {
        for (std::size_t at = 0; (at = word.find(from, at)) != std::string::npos;) {
            word.replace(at, from.size(), to);
        }
    }
}

void rewrite_suffix(std::string & word)
{
    constexpr std::string_view pairs[][2]
        = {{"mption", "me"}, {"hood", ""}, {"ment", ""}, {"tion", ""}, {"sion", ""},
           {"ough", "o"},    {"ies", "y"}, {"gue", "g"}, {"cal", "c"}, {"nal", "n"},
           {"ed", ""},       {"es", ""},   {"er", ""}};
    for (auto const & [from, to] : pairs) {
        if (word.size() > from.size() + 1 && word.ends_with(from)) {
            word.replace(word.size() - from.size(), from.size(), to);
            return;
        }
    }
}

void remove_vowels(std::string & word, std::uint32_t target)
{
    for (int sweep = 0; sweep < 3; ++sweep) {
        for (std::size_t i = word.size(); i-- > 0 && word.size() > target;) {
            bool const hit = vowel(word[i]) && (sweep != 1 || (i > 0 && vowel(word[i - 1])));
            if (!hit && sweep == 0) {
                break;
            }
            if (hit && i >= 2) {
                word.erase(i, 1);
            }
        }
    }
}

std::string shorten_word(std::string word, std::uint32_t target)
{
    if (word.size() > target) {
        rewrite_combinations(word);
    }
    if (word.size() > target) {
        rewrite_suffix(word);
    }
    if (rewrite_common(word)) {
        return word;
    }
    if (static_cast<std::uint32_t>(word.size()) - target > 1) {
        remove_vowels(word, target);
    }
    return word.substr(0, target);
}

std::string shorten(std::string const & name, std::string const & delimiters, std::uint32_t target)
{
    auto const size = static_cast<std::uint32_t>(name.size());
    if (size <= target) {
        return name;
    }
    std::vector<std::string> words;
    std::size_t start = 0;
    for (std::size_t i = 1; i <= name.size(); ++i) {
        if (i == name.size() || (name[i] >= 'A' && name[i] <= 'Z')
            || delimiters.find(name[i]) != std::string::npos) {
            std::string word;
            for (char const c : name.substr(start, i - start)) {
                word += c == '_' ? std::string() : std::string(1, lower(c));
            }
            words.push_back(word);
            start = i;
        }
    }
    std::uint32_t total = 0;
    for (auto & word : words) {
        auto const length = static_cast<std::uint32_t>(word.size());
        word = shorten_word(word, length - length * 100 / size * length / 100);
        total += static_cast<std::uint32_t>(word.size());
    }
    if (total > target) {
        std::uint32_t excess = (total - target) / static_cast<std::uint32_t>(words.size());
        excess = excess == 0 ? 1 : excess;
        for (auto & word : words) {
            word = shorten_word(word, static_cast<std::uint32_t>(word.size()) - excess);
        }
    }
    std::string result;
    for (auto const & word : words) {
        std::size_t const at = result.size();
        result += word;
        if (at < result.size() && result[at] >= 'a' && result[at] <= 'z') {
            result[at] = static_cast<char>(result[at] - 32);
        }
    }
    return result.substr(0, target);
}

void expect(std::string const & got, std::string const & wanted, char const * what)
{
    if (got != wanted) {
        std::fprintf(stderr, "%s: \"%s\" instead of \"%s\"\n", what, got.c_str(), wanted.c_str());
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * data, std::size_t size)
{
    if (size < 2) {
        return 0;
    }
    std::uint32_t const target = data[0] % 40;
    std::string const delimiters = data[1] % 4 != 0 ? " _-.,:/\\+*=&?!@$#" : "q";
    std::string const name(reinterpret_cast<char const *>(data) + 2, size - 2);
    zel::name_generator const shortener{zel::string(delimiters)};
    expect(shortener.abbreviate(name, target), shorten(name, delimiters, target), "abbreviate");
    expect(shortener.abbreviateWord(name, target), shorten_word(name, target), "abbreviateWord");
    return 0;
}
