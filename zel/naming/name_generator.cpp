// SPDX-License-Identifier: MIT
#include "zel/naming/name_generator.h"

#include "zel/base/block16.h"
#include "zel/base/byte_set.h"
#include "zel/naming/word_stages.h"
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <memory>
#include <span>
#include <stdexcept>
#include <string_view>

namespace zel {
namespace {

// Lengths are 32-bit numbers, and shares are computed in wrapping 32-bit arithmetic.
std::uint32_t checked_length(string const & text)
{
    if (text.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw std::length_error("zel::name_generator: the name is too long");
    }
    return static_cast<std::uint32_t>(text.size());
}

// A word followed by bytes that the stages may read; on the stack unless the name is very long.
class word_buffer {
public:
    explicit word_buffer(std::size_t size)
        : heap_(size > on_stack ? new char[size + naming::readable_behind] : nullptr)
        , data_(heap_ == nullptr ? stack_ : heap_.get())
    {
        std::memset(data_ + size, 0, naming::readable_behind);
    }

    char * data() noexcept { return data_; }

private:
    static constexpr std::size_t on_stack = 240;
    char stack_[on_stack + naming::readable_behind];
    std::unique_ptr<char[]> heap_;
    char * data_;
};

// Runs a stage on a copy of a string and stores the result.
template <typename Stage> auto in_place(string & word, Stage stage)
{
    std::uint32_t const size = checked_length(word);
    word_buffer buffer(size);
    word.copy(buffer.data(), size);
    naming::word_span span{buffer.data(), size};
    struct take_back {
        string & word;
        naming::word_span const & span;
        ~take_back()
        {
            word.assign(span.text, span.size);
        } // never longer than before, so nothing is allocated
    } const at_end{word, span};
    return stage(span);
}

constexpr std::string_view default_delimiters = " _-.,:/\\+*=&?!@$#";
constexpr byte_set capitals("ABCDEFGHIJKLMNOPQRSTUVWXYZ");

constexpr byte_set boundaries(std::string_view delimiters)
{
    byte_set set(capitals);
    set.add(delimiters);
    return set;
}

// Calls `take(first, last)` for each word. A word ends before a capital or a delimiter. The first
// byte of the name never ends a word.
template <typename Take>
void for_each_word(string const & name, string const & delimiters, Take take)
{
    byte_set const boundary = boundaries(delimiters);
    std::size_t start = 0;
    for (std::size_t i = 1; i <= name.size(); ++i) {
        if (i == name.size() || boundary.contains(name[i])) {
            take(name.data() + start, name.data() + i);
            start = i;
        }
    }
}

// The same for the default delimiters, 16 bytes at a time. Converts the buffer to lower case. Here
// an underscore can only be the first byte of a word, and is left out.
template <typename Take> void for_each_usual_word(char * name, std::uint32_t size, Take take)
{
    static constexpr byte_set usual = boundaries(default_delimiters);
    char * start = name;
    auto const end_word = [&](char * end) {
        start += start != end && *start == '_';
        take(naming::word_span{start, static_cast<std::uint32_t>(end - start)});
        start = end;
    };
    for (std::uint32_t i = 0; i < size; i += 16) {
        auto const bytes = block16::load(name + i);
        auto const upper
            = greater(bytes, block16::filled('A' - 1)) & greater(block16::filled('Z' + 1), bytes);
        auto const lower
            = greater(bytes, block16::filled('a' - 1)) & greater(block16::filled('z' + 1), bytes);
        (bytes | (upper & block16::filled(0x20))).store(name + i);
        std::uint32_t const capital = upper.sign_bits();
        for (std::uint32_t left = ~lower.sign_bits() & 0xFFFF; left != 0; left &= left - 1) {
            std::uint32_t const place = static_cast<std::uint32_t>(std::countr_zero(left));
            bool const is_boundary = (capital >> place & 1) != 0 || usual.contains(name[i + place]);
            if (is_boundary && i + place != 0 && i + place < size) {
                end_word(name + i + place);
            }
        }
    }
    end_word(name + size);
}

// Copies a word in lower case and without underscores. Returns the end of the copy.
char * write_lower(char const * first, char const * last, char * to) noexcept
{
    for (; first != last; ++first) {
        *to = naming::lower(*first);
        to += *first != '_';
    }
    return to;
}

// The list of the words, on the stack unless there are very many.
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

    // The words lie side by side in the buffer; they can only become shorter.
    word_buffer buffer(size);
    word_list list;
    if (delimiters_ == default_delimiters) {
        name.copy(buffer.data(), size);
        for_each_usual_word(buffer.data(), size, [&](naming::word_span word) { list.add(word); });
    } else {
        char * free = buffer.data();
        for_each_word(name, delimiters_, [&](char const * first, char const * last) {
            char * const end = write_lower(first, last, free);
            list.add({free, static_cast<std::uint32_t>(end - free)});
            free = end;
        });
    }
    std::span<naming::word_span> const words = list.words();

    // Multiplying by the reciprocal is faster than a division for each word. It is exact as long as
    // 100 * size^2 is below 2^40.
    std::uint64_t const percent = (std::uint64_t{1} << 40) / size + 1;
    bool const is_exact = size <= 0xFFFF;
    std::uint32_t total = 0;
    for (auto & word : words) {
        std::uint32_t const hundredfold = word.size * 100U;
        std::uint32_t const share // percent of the name
            = is_exact ? static_cast<std::uint32_t>(hundredfold * percent >> 40)
                       : hundredfold / size;
        naming::abbreviate_word(word, word.size - share * word.size / 100U);
        total += word.size;
    }
    std::uint32_t excess = 0;
    if (total > target) {
        excess = (total - target) / static_cast<std::uint32_t>(words.size());
        excess += excess == 0;
    }
    // Stops at the target, because the words that follow would be cut off.
    word_buffer joined(size);
    std::uint32_t length = 0;
    for (auto word = words.begin(); word != words.end() && length < target; ++word) {
        if (excess != 0) {
            // If `excess` is larger than the word, the difference wraps to a large number. Then
            // only the table of common words acts.
            naming::abbreviate_word(*word, word->size - excess);
        }
        char * const end = joined.data() + length;
        if (word->size <= 16) {
            block16::load(word->text).store(end);
        } else {
            std::memcpy(end, word->text, word->size);
        }
        *end = naming::upper(*end); // after an empty word, the next word overwrites this byte
        length += word->size;
    }
    return string(joined.data(), std::min(length, target));
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
