// SPDX-License-Identifier: MIT
#include "zel/text/string.h"

#include "zel/base/block16.h"
#include "zel/base/byte_set.h"
#include "zel/base/digits.h"
#include "zel/core/exception.h"
#include "zel/platform/host/locale.h"
#include "zel/text/format.h"
#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace zel {
namespace {

// The bytes of ms_default_white_space_string.
struct white_space {
    static bool contains(char c) noexcept
    {
        return c <= ' ' && (c == ' ' || c == '\t' || c == '\n' || c == '\r');
    }
};

template <typename Strip> void with_trimmed_set(char const * set, Strip && strip)
{
    string::validate_ptr(set);
    if (set == string::ms_default_white_space_string) {
        strip(white_space());
    } else {
        strip(byte_set(set));
    }
}

// The index of the first byte within the first `end` bytes that is not a member, and the index
// behind the last such byte.
template <typename Set>
std::size_t first_other(std::string const & text, Set const & members, std::size_t end)
{
    std::size_t first = 0;
    while (first != end && members.contains(text[first])) {
        ++first;
    }
    return first;
}

template <typename Set> std::size_t last_other(std::string const & text, Set const & members)
{
    std::size_t last = text.size();
    while (last != 0 && members.contains(text[last - 1])) {
        --last;
    }
    return last;
}

// The text up to its first NUL.
std::string_view before_nul(std::string const & text) { return text.c_str(); }

// Changes the bytes from `first` to `first + 25` by 0x20, and leaves all others.
void flip_letters(char * p, std::size_t size, char first)
{
    // Shifted so that the letters are the 26 lowest signed bytes; one comparison then finds them.
    auto const move = block16::filled(static_cast<char>(-128 - first));
    auto const end = block16::filled(-128 + 26);
    auto const bit = block16::filled(0x20);
    std::size_t i = 0;
    for (; i + 16 <= size; i += 16) {
        auto const bytes = block16::load(p + i);
        auto const letters = greater(end, bytes + move);
        (bytes ^ (letters & bit)).store(p + i);
    }
    for (; i < size; ++i) {
        if (p[i] >= first && p[i] < first + 26) {
            p[i] ^= 0x20;
        }
    }
}

// The bytes that must be escaped in XML text and attributes, with their escapes.
struct xml_escape {
    char text[8]; // always copied as a whole; only its first `size` bytes count
    unsigned char size;
};

constexpr xml_escape xml_escapes[] = {
    {"#x9;", 4}, {"#xa", 3}, {"#xd", 3}, {"&quot;", 6}, {"&amp;", 5}, {"&lt;", 4}, {"&gt;", 4},
};

constexpr std::array<unsigned char, 64> xml_escape_index = [] {
    std::array<unsigned char, 64> index{};
    index.fill(255);
    unsigned char next = 0;
    for (char const c : {'\t', '\n', '\r', '"', '&', '<', '>'}) {
        index[static_cast<unsigned char>(c)] = next++;
    }
    return index;
}();

xml_escape const * xml_escape_of(char c)
{
    auto const byte = static_cast<unsigned char>(c);
    unsigned char const index = byte < 64 ? xml_escape_index[byte] : 255;
    return index == 255 ? nullptr : xml_escapes + index;
}

// The escape of a byte that is known to have one.
xml_escape const & known_xml_escape(char c)
{
    return xml_escapes[xml_escape_index[static_cast<unsigned char>(c) & 63U]];
}

// One bit for each of 16 bytes that has to be escaped.
std::uint32_t xml_special_bits(block16 bytes)
{
    auto const is = [](block16 a, char c) { return equal(a, block16::filled(c)); };
    auto const breaks = is(bytes, '\t') | is(bytes, '\n') | is(bytes, '\r');
    // '<' and '>' differ only in bit 1, '"' and '&' only in bit 2.
    auto const angles = is(bytes | block16::filled(2), '>');
    auto const marks = is(bytes | block16::filled(4), '&');
    return (breaks | angles | marks).sign_bits();
}

std::size_t xml_growth(char const * p, std::size_t size)
{
    std::size_t growth = 0;
    std::size_t i = 0;
    for (; i + 16 <= size; i += 16) {
        for (std::uint32_t special = xml_special_bits(block16::load(p + i)); special != 0;
             special &= special - 1) {
            auto const at = i + static_cast<unsigned>(std::countr_zero(special));
            growth += known_xml_escape(p[at]).size - 1U;
        }
    }
    for (; i < size; ++i) {
        xml_escape const * const escape = xml_escape_of(p[i]);
        growth += escape == nullptr ? 0 : escape->size - 1U;
    }
    return growth;
}

// Calls `found` with each position of `wanted` in the text, in order.
template <typename Found> void for_each_byte(std::string_view text, char wanted, Found && found)
{
    auto const pattern = block16::filled(wanted);
    std::size_t i = 0;
    for (; i + 16 <= text.size(); i += 16) {
        for (std::uint32_t hits = equal(block16::load(text.data() + i), pattern).sign_bits();
             hits != 0; hits &= hits - 1) {
            found(i + static_cast<unsigned>(std::countr_zero(hits)));
        }
    }
    for (; i < text.size(); ++i) {
        if (text[i] == wanted) {
            found(i);
        }
    }
}

// The same for a text, without overlaps. An empty text is never found.
template <typename Found>
void for_each_text(std::string_view text, std::string_view wanted, Found && found)
{
    if (wanted.empty()) {
        return;
    }
    for (std::size_t hit = text.find(wanted); hit != std::string_view::npos;
         hit = text.find(wanted, hit + wanted.size())) {
        found(hit);
    }
}

} // namespace

constinit char const string::ms_default_white_space_string[5] = " \t\n\r";
constinit char const string::ms_default_delimeter_string[26] = " \t\n\r[]{}(),.:;!%^&*+-=/?|";

void string::throw_null_ptr_exception()
{
    throw memory_exception(memory_exception::null_pointer, "zel::string");
}

string string::mid(unsigned int first, unsigned int last) const
{
    unsigned int const count
        = last - first; // wraps to a large number if `last` is less than `first`
    return string(base::substr(first, count));
}

std::uint32_t string::hash(std::uint32_t count) const noexcept
{
    std::size_t const bytes = count == 0xFFFFFFFF ? size() : count;
    std::uint32_t h = 0;
    for (char const c : std::string_view(*this).substr(0, bytes)) {
        // (h + byte) * 1025, with the product of the byte off the dependency chain from one h to
        // the next.
        std::uint32_t const byte = static_cast<std::uint32_t>(static_cast<signed char>(c)) * 1025;
        std::uint32_t sum = h + byte;
        asm("" : "+r"(sum)); // keeps the compiler from using the longer chain (h + byte) * 1025
        h = (h << 10) + sum;
        h ^= h >> 6;
    }
    h *= 9;
    h ^= h >> 11;
    return h * 32769;
}

string string::truncate_hash(std::uint32_t length) const
{
    if (size() <= length || length <= 8) {
        return *this;
    }
    string result;
    result.reserve(length);
    result.append(*this, 0, length - 8);
    char digits[8];
    write_hexadecimal(digits, hash(0xFFFFFFFF), 8);
    result.append(digits, 8);
    return result;
}

void string::remove(string const & set)
{
    byte_set const members(before_nul(set));
    base::erase(std::remove_if(begin(), end(), [&](char c) { return members.contains(c); }), end());
}

void string::to_lower()
{
    base::resize(before_nul(*this).size());
    if (platform::only_ascii_has_case()) {
        flip_letters(data(), size(), 'A');
    } else {
        std::transform(begin(), end(), begin(), platform::lower_in_locale);
    }
}

void string::to_upper()
{
    base::resize(before_nul(*this).size());
    if (platform::only_ascii_has_case()) {
        flip_letters(data(), size(), 'a');
    } else {
        std::transform(begin(), end(), begin(), platform::upper_in_locale);
    }
}

string string::normalize_for_xml() const
{
    std::size_t const growth = xml_growth(data(), size());
    if (growth == 0) {
        return *this;
    }
    string result;
    result.resize(size() + growth);
    char * to = result.data();
    char const * from = data();
    char const * const from_end = from + size();
    char * const to_end = to + result.size();
    // Copies of 16 bytes and escapes of 8 may write beyond their end; the next output overwrites
    // that.
    while (from_end - from >= 16 && to_end - to >= 16) {
        auto const bytes = block16::load(from);
        std::uint32_t const special = xml_special_bits(bytes);
        bytes.store(to);
        if (special == 0) {
            from += 16;
            to += 16;
            continue;
        }
        auto const plain = std::countr_zero(special);
        from += plain;
        to += plain;
        if (to_end - to < 8) {
            break;
        }
        xml_escape const & escape = known_xml_escape(*from++);
        std::memcpy(to, escape.text, sizeof(escape.text));
        to += escape.size;
    }
    for (; from != from_end; ++from) {
        if (xml_escape const * const escape = xml_escape_of(*from)) {
            std::memcpy(to, escape->text, escape->size);
            to += escape->size;
        } else {
            *to++ = *from;
        }
    }
    return result;
}

string & string::replace(string const & from, string const & to)
{
    std::size_t hits = 0;
    for_each_text(*this, from, [&](std::size_t) { ++hits; });
    if (hits == 0) {
        return *this;
    }
    string result;
    result.reserve(size() - hits * from.size() + hits * to.size());
    std::size_t start = 0;
    for_each_text(*this, from, [&](std::size_t hit) {
        result.append(*this, start, hit - start).append(to);
        start = hit + from.size();
    });
    result.append(*this, start, npos);
    return *this = std::move(result);
}

std::int32_t string::find_one_of(string const & set)
{
    std::size_t const plain = std::strcspn(c_str(), set.c_str());
    if ((*this)[plain] == '\0') {
        return -1;
    }
    if (plain > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) {
        throw std::out_of_range("zel::string::find_one_of: a position beyond 0x7FFFFFFF");
    }
    return static_cast<std::int32_t>(plain);
}

void string::trim_left(char const * set)
{
    with_trimmed_set(
        set, [this](auto const & members) { base::erase(0, first_other(*this, members, size())); });
}

void string::trim_right(char const * set)
{
    with_trimmed_set(set,
                     [this](auto const & members) { base::erase(last_other(*this, members)); });
}

void string::trim(char const * set)
{
    with_trimmed_set(set, [this](auto const & members) {
        std::size_t const last = last_other(*this, members);
        std::size_t const first = first_other(*this, members, last);
        std::memmove(data(), data() + first, last - first);
        base::erase(last - first);
    });
}

string & string::format(char const * format_text, ...)
{
    validate_ptr(format_text);
    std::va_list arguments;
    va_start(arguments, format_text);
    try {
        format_into(*this, format_text, arguments);
    } catch (...) {
        va_end(arguments);
        throw;
    }
    va_end(arguments);
    return *this;
}

string & string::format_v(char const * format_text, std::va_list arguments)
{
    validate_ptr(format_text);
    format_into(*this, format_text, arguments);
    return *this;
}

string string::word(std::int32_t index, string const & delimiters) const
{
    byte_set members(delimiters);
    members.erase('\0');
    std::string_view const text = before_nul(*this);
    std::size_t end = 0;
    for (; index >= 0; --index) {
        std::size_t start = end;
        while (start != text.size() && members.contains(text[start])) {
            ++start;
        }
        end = start;
        while (end != text.size() && !members.contains(text[end])) {
            ++end;
        }
        if (index == 0) {
            return string(text.substr(start, end - start));
        }
        if (end == text.size()) {
            break;
        }
    }
    return string();
}

string string::extract_sub_string(std::uint32_t index, char separator) const
{
    std::string_view text = before_nul(*this);
    for (; index != 0; --index) {
        std::size_t const hit = text.find(separator);
        if (hit == std::string_view::npos) {
            return string();
        }
        text.remove_prefix(hit + 1);
    }
    return string(text.substr(0, text.find(separator)));
}

std::vector<string> string::split(string const & separator, bool skip_empty_tail) const
{
    auto const for_each_hit = [&](auto && found) {
        if (separator.size() == 1) {
            for_each_byte(*this, separator[0], found);
        } else {
            for_each_text(*this, separator, found);
        }
    };
    std::size_t hits = 0;
    for_each_hit([&](std::size_t) { ++hits; });

    std::vector<string> pieces;
    pieces.reserve(hits + 1);
    std::size_t start = 0;
    for_each_hit([&](std::size_t hit) {
        pieces.emplace_back(std::string_view(data() + start, hit - start));
        start = hit + separator.size();
    });
    if (start != size() || !skip_empty_tail) {
        pieces.emplace_back(std::string_view(data() + start, size() - start));
    }
    return pieces;
}

void string::load_string(std::uint32_t) noexcept { }

} // namespace zel
