// SPDX-License-Identifier: MIT
#include "zel/naming/name_generator.h"

#include "zel/base/byte_set.h"
#include "zel/naming/word_stages.h"
#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <span>
#include <stdexcept>

namespace zel {
namespace {

// Lengths are 32-bit numbers, and the shares are worked out in wrapping 32-bit arithmetic.
std::uint32_t checked_length(string const & text)
{
    if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("zel::name_generator: the name is too long");
    }
    return static_cast<std::uint32_t>(text.size());
}

// Has a stage work on a string where it stands.
template <typename Stage> auto in_place(string & word, Stage stage)
{
    naming::word_span span{word.data(), checked_length(word)};
    struct shorten {
        string & word;
        naming::word_span const & span;
        ~shorten() { word.erase(span.size); }
    } const at_end{word, span};
    return stage(span);
}

// Calls `take(first, last)` for each word. A word ends where a capital or a delimiter begins; the
// first byte never ends one.
template <typename Take>
void for_each_word(string const & name, string const & delimiters, Take take)
{
    constexpr byte_set capitals("ABCDEFGHIJKLMNOPQRSTUVWXYZ");
    byte_set boundary(capitals);
    boundary.add(delimiters);
    std::size_t start = 0;
    for (std::size_t i = 1; i <= name.size(); ++i) {
        if (i == name.size() || boundary.contains(name[i])) {
            take(name.data() + start, name.data() + i);
            start = i;
        }
    }
}

// Writes a word in lower case and without underscores. Returns the end of what was written.
char * write_lower(char const * first, char const * last, char * to) noexcept
{
    for (; first != last; ++first) {
        if (*first != '_') {
            *to++ = naming::lower(*first);
        }
    }
    return to;
}

// Room for the words of all but absurd names on the stack.
class word_list {
public:
    void add(naming::word_span word)
    {
        if (count_ < on_stack_.size()) {
            on_stack_[count_] = word;
        } else {
            if (count_ == on_stack_.size()) {
                on_heap_.assign(on_stack_.begin(), on_stack_.end());
            }
            on_heap_.push_back(word);
        }
        ++count_;
    }

    std::span<naming::word_span> words() noexcept
    {
        return {count_ <= on_stack_.size() ? on_stack_.data() : on_heap_.data(), count_};
    }

private:
    std::array<naming::word_span, 32> on_stack_;
    std::vector<naming::word_span> on_heap_;
    std::size_t count_ = 0;
};

} // namespace

name_generator::name_generator(string const & delimiters, std::uint32_t parameter1,
                               std::uint32_t parameter2, std::uint32_t parameter3)
    : parameter1_(parameter1)
    , parameter3_(parameter3)
    , parameter2_(parameter2)
    , delimiters_(delimiters)
{
}

string name_generator::abbreviate(string const & name, std::uint32_t target) const
{
    std::uint32_t const size = checked_length(name);
    if (size <= target) {
        return name;
    }

    // The words are worked on inside the result, where they only ever get shorter.
    string result(size, '\0');
    word_list list;
    char * free = result.data();
    for_each_word(name, delimiters_, [&](char const * first, char const * last) {
        char * const end = write_lower(first, last, free);
        list.add({free, static_cast<std::uint32_t>(end - free)});
        free = end;
    });
    std::span<naming::word_span> const words = list.words();

    std::uint32_t total = 0;
    for (auto & word : words) {
        std::uint32_t const share = word.size * 100U / size; // percent of the name
        naming::abbreviate_word(word, word.size - share * word.size / 100U);
        total += word.size;
    }
    if (total > target) {
        std::uint32_t excess = (total - target) / static_cast<std::uint32_t>(words.size());
        excess += excess == 0;
        for (auto & word : words) {
            // Below an excess larger than the word the difference wraps, and only the table acts.
            naming::abbreviate_word(word, word.size - excess);
        }
    }

    char * end = result.data();
    for (auto const & word : words) {
        if (word.size != 0) {
            std::memmove(end, word.text, word.size);
            *end = naming::upper(*end);
            end += word.size;
        }
    }
    result.resize(std::min<std::size_t>(static_cast<std::size_t>(end - result.data()), target));
    return result;
}

string name_generator::abbreviateWord(string const & word, std::uint32_t target) const
{
    string result(word);
    in_place(result, [=](naming::word_span & span) { naming::abbreviate_word(span, target); });
    return result;
}

int name_generator::findWords(string const & name, std::vector<string> & words) const
{
    words.clear();
    for_each_word(name, delimiters_, [&](char const * first, char const * last) {
        string word;
        word.resize(static_cast<std::size_t>(last - first));
        word.resize(static_cast<std::size_t>(write_lower(first, last, word.data()) - word.data()));
        words.push_back(std::move(word));
    });
    return static_cast<int>(words.size());
}

bool name_generator::abbreviateCommonWords(string & word) const
{
    return in_place(word, naming::abbreviate_common_words);
}

void name_generator::optimizeCombinations(string & word) const
{
    in_place(word, naming::optimize_combinations);
}

void name_generator::truncateCommonSuffix(string & word) const
{
    in_place(word, naming::truncate_common_suffix);
}

void name_generator::removeVowels(string & word, std::uint32_t target) const
{
    in_place(word, [=](naming::word_span & span) { naming::remove_vowels(span, target); });
}

void name_generator::truncate(string & word, std::uint32_t target) const
{
    if (word.size() > target) {
        word.resize(target);
    }
}

string name_generator::constructExpression(std::vector<string> const & words) const
{
    string result;
    for (auto const & word : words) {
        std::size_t const position = result.size();
        result += word;
        if (position < result.size()) {
            result[position] = toUpper(result[position]);
        }
    }
    return result;
}

char name_generator::toLower(char c) const { return naming::lower(c); }

char name_generator::toUpper(char c) const { return naming::upper(c); }

void name_generator::toLower(string & text) const
{
    for (char & c : text) {
        c = naming::lower(c);
    }
}

void name_generator::toUpper(string & text) const
{
    for (char & c : text) {
        c = naming::upper(c);
    }
}

bool name_generator::is_vowel(char c) const { return naming::vowel(c); }

bool name_generator::is_consonant(char c) const { return !naming::vowel(c); }

} // namespace zel
