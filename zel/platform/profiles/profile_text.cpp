// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/profile_text.h"

#include "zel/base/ascii.h"
#include "zel/base/block16.h"
#include "zel/base/digits.h"
#include <algorithm>
#include <bit>
#include <cstring>

namespace zel::platform {
namespace {

bool is_quote(char c) noexcept { return c == '"' || c == '\''; }

/// True if a name can occur in a file, where a name has no blanks at its ends.
bool can_be_found(std::string_view name) noexcept
{
    return name.empty() || (!is_profile_blank(name.front()) && !is_profile_blank(name.back()));
}

} // namespace

std::string_view trim_profile_blanks(std::string_view text) noexcept
{
    while (!text.empty() && is_profile_blank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_profile_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string_view trim_spaces(std::string_view text) noexcept
{
    std::size_t const first = std::min(text.find_first_not_of(' '), text.size());
    return text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

char const * find_line_end(char const * at, char const * end) noexcept
{
    auto const line_feed = block16::filled('\n');
    auto const carriage_return = block16::filled('\r');
    for (; end - at >= 16; at += 16) {
        auto const bytes = block16::load(at);
        std::uint32_t const ends
            = (equal(bytes, line_feed) | equal(bytes, carriage_return)).sign_bits();
        if (ends != 0) {
            return at + std::countr_zero(ends);
        }
    }
    return std::find_if(at, end, is_line_end);
}

char const * find_section_head(char const * begin, char const * at, char const * end,
                               bool begin_blank) noexcept
{
    // Brackets are rarer than lines, so search for a bracket first and then check what is before
    // it.
    for (; at != end; ++at) {
        at = static_cast<char const *>(std::memchr(at, '[', static_cast<std::size_t>(end - at)));
        if (at == nullptr) {
            return end;
        }
        char const * before = at;
        while (before != begin && is_profile_blank(before[-1])) {
            --before;
        }
        if (before == begin ? begin_blank : is_line_end(before[-1])) {
            return at;
        }
    }
    return end;
}

void text_value::take(std::string_view piece) noexcept
{
    if (length_ == 0) {
        while (!piece.empty() && is_profile_blank(piece.front())) {
            piece.remove_prefix(1);
        }
        if (piece.empty()) {
            return;
        }
        first_ = piece.front();
    }
    if (length_ < size_) {
        std::memcpy(buffer_ + length_, piece.data(), std::min(size_ - length_, piece.size()));
    }
    auto const back = std::find_if_not(piece.rbegin(), piece.rend(),
                                       [](char c) { return is_profile_blank(c); });
    if (back != piece.rend()) {
        visible_ = length_ + static_cast<std::size_t>(piece.rend() - back);
        last_ = *back;
    }
    length_ += piece.size();
}

std::uint32_t text_value::finish() noexcept
{
    bool const quoted = visible_ >= 2 && is_quote(first_) && first_ == last_;
    // The buffer has one byte more than the result, so removing the quote loses nothing.
    std::size_t const count = std::min(quoted ? visible_ - 2 : visible_, size_ - 1);
    std::memmove(buffer_, buffer_ + (quoted ? 1 : 0), count);
    buffer_[count] = '\0';
    return static_cast<std::uint32_t>(count);
}

void block_value::take(std::string_view piece) noexcept
{
    for (char const c : piece) {
        if (is_profile_blank(c)) {
            gap_ = began_;
        } else if (broken_ || gap_ || closed_ || !take(c)) {
            broken_ = true;
            return;
        }
    }
}

bool block_value::take(char c) noexcept
{
    if (!began_) {
        began_ = true;
        if (is_quote(c)) {
            quote_ = c;
            return true;
        }
    }
    if (quote_ != '\0' && c == quote_) {
        closed_ = true;
        return true;
    }
    unsigned int const value = hexadecimal_digit(c);
    if (value == no_digit) {
        return false;
    }
    if (half_ < 0) {
        half_ = static_cast<signed char>(value);
        return true;
    }
    if (pairs_ > 0) {
        sum_ = static_cast<unsigned char>(sum_ + last_);
        if (pairs_ <= room_ && bytes_ != nullptr) {
            bytes_[pairs_ - 1] = last_;
        }
    }
    last_ = static_cast<unsigned char>(static_cast<unsigned int>(half_) << 4 | value);
    half_ = -1;
    ++pairs_;
    return true;
}

bool block_value::sound() const noexcept
{
    return !broken_ && closed_ == (quote_ != '\0') && half_ < 0 && pairs_ > 0 && sum_ == last_;
}

entry_finder::entry_finder(std::string_view section, std::string_view name,
                           value_sink & value) noexcept
    : section_(trim_spaces(section))
    , name_(trim_spaces(name))
    , value_(value)
{
    if (!can_be_found(section_) || !can_be_found(name_)) {
        state_ = nowhere;
    }
}

bool entry_finder::feed(std::string_view block) noexcept
{
    char const * begin = block.data();
    char const * const end = begin + block.size();
    for (char const * at = begin; at != end && state_ < behind_value;) {
        at = step(begin, at, end);
    }
    char const * back = end;
    while (back != begin && is_profile_blank(back[-1])) {
        --back;
    }
    if (back != begin) {
        line_blank_ = is_line_end(back[-1]);
    }
    return state_ >= behind_value;
}

/// Reads on until the state changes.
/// \returns the first byte that was not processed.
char const * entry_finder::step(char const *& begin, char const * at, char const * end) noexcept
{
    switch (state_) {
    case in_mark:
        if (*at != byte_order_mark[matched_]) {
            state_ = outside;
            return at;
        }
        if (++matched_ == byte_order_mark.size()) {
            state_ = outside;
            begin = at + 1;
            line_blank_ = true;
        }
        return at + 1;
    case outside:
        at = find_section_head(begin, at, end, line_blank_);
        if (at != end) {
            state_ = in_head;
            matched_ = 0;
            ++at;
        }
        return at;
    case in_head:
        return match(section_, ']', in_rest, outside, at, end);
    case at_line:
        while (at != end && (is_profile_blank(*at) || is_line_end(*at))) {
            ++at;
        }
        if (at != end) {
            state_ = *at == '[' ? nowhere : *at == ';' ? in_rest : in_name;
            matched_ = 0;
        }
        return at;
    case in_name:
        return match(name_, '=', in_value, in_rest, at, end);
    case in_rest:
        at = find_line_end(at, end);
        state_ = at == end ? in_rest : at_line;
        return at;
    case in_value: {
        char const * const stop = find_line_end(at, end);
        value_.take(std::string_view(at, static_cast<std::size_t>(stop - at)));
        state_ = stop == end ? in_value : behind_value;
        return stop;
    }
    default:
        return end;
    }
}

/// Compares a name in the file, from its first byte up to its terminator.
char const * entry_finder::match(std::string_view wanted, char terminator, state hit, state miss,
                                 char const * at, char const * end) noexcept
{
    for (; at != end; ++at) {
        if (*at == terminator) {
            state_ = matched_ == wanted.size() ? hit : miss;
            return at + 1;
        }
        if (is_line_end(*at)) {
            // A line end also ends a section's name; an entry then has no value.
            state_ = hit == in_rest && matched_ != wanted.size() ? miss : in_rest;
            return at;
        }
        bool const blank = is_profile_blank(*at);
        if (matched_ == 0 && blank) {
            continue;
        }
        if (matched_ == wanted.size()) {
            if (!blank) {
                state_ = miss;
                return at;
            }
        } else if (ascii::lower(*at) == ascii::lower(wanted[matched_])) {
            ++matched_;
        } else {
            state_ = miss;
            return at;
        }
    }
    return at;
}

} // namespace zel::platform
