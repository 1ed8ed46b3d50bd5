// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The grammar of private-profile files. It works on text and needs no file.
namespace zel::platform {

constexpr bool is_profile_blank(char c) noexcept { return c == ' ' || c == '\t' || c == '\v'; }
constexpr bool is_line_end(char c) noexcept { return c == '\n' || c == '\r'; }

/// May precede the first line.
constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

/// Removes the blanks at both ends, as around a name or a value in a file.
std::string_view trim_profile_blanks(std::string_view text) noexcept;
/// Removes the spaces, but no other blanks, at both ends, as around a name that a caller passes.
std::string_view trim_spaces(std::string_view text) noexcept;

/// The first `\r` or `\n`, or `end`.
char const * find_line_end(char const * at, char const * end) noexcept;

/// The next `[` at or behind `at` that begins a section: only blanks precede it on its line. `end`
/// when there is none.
/// \param begin        the start of the known text, at or before `at`.
/// \param begin_blank  true if the part of the line before `begin` is blank.
char const * find_section_head(char const * begin, char const * at, char const * end,
                               bool begin_blank) noexcept;

/// Receives the value of an entry, the text between `=` and the end of its line, in pieces.
class value_sink {
public:
    virtual void take(std::string_view piece) noexcept = 0;

protected:
    ~value_sink() = default;
};

/// A value as text, without the blanks around it and without one pair of equal quotes.
class text_value final : public value_sink {
public:
    /// \param size  of `buffer`; at least 1.
    text_value(char * buffer, std::uint32_t size) noexcept
        : buffer_(buffer)
        , size_(size)
    {
    }

    void take(std::string_view piece) noexcept override;
    /// Cuts the text to fit and adds a terminator.
    /// \returns the number of bytes without the terminator.
    std::uint32_t finish() noexcept;

private:
    char * buffer_;
    std::size_t size_;
    std::size_t length_ = 0; // of the value so far, without leading blanks
    std::size_t visible_ = 0; // the same, without trailing blanks
    char first_ = '\0';
    char last_ = '\0'; // the last byte that is no blank
};

/// A value as a block: two hexadecimal digits for each byte, and two more for the low eight bits of
/// the sum of all bytes.
class block_value final : public value_sink {
public:
    /// \param bytes  receives the bytes of the block, at most `room`; may be null.
    explicit block_value(unsigned char * bytes = nullptr, std::size_t room = 0) noexcept
        : bytes_(bytes)
        , room_(room)
    {
    }

    void take(std::string_view piece) noexcept override;
    /// True if digits and checksum are correct.
    bool sound() const noexcept;
    /// The number of bytes in the block, including those for which there was no room.
    std::size_t size() const noexcept { return pairs_ == 0 ? 0 : pairs_ - 1; }

private:
    bool take(char c) noexcept;

    unsigned char * bytes_;
    std::size_t room_;
    std::size_t pairs_ = 0;
    unsigned char sum_ = 0; // of all pairs except the last, which may be the checksum
    unsigned char last_ = 0;
    signed char half_ = -1; // the first digit of a pair
    char quote_ = '\0';
    bool began_ = false; // a visible byte was read
    bool gap_ = false; // then a blank
    bool closed_ = false; // the closing quote was read
    bool broken_ = false;
};

/// Searches for one entry in a text that is fed in blocks of any size, and passes its value on.
///
/// It reads lines of other sections only up to their first visible byte, and skips the values of
/// other entries. Allocates nothing.
class entry_finder {
public:
    /// The names may have spaces around them.
    entry_finder(std::string_view section, std::string_view name, value_sink & value) noexcept;

    /// Reads the next bytes.
    /// \returns true when the rest of the text no longer matters.
    bool feed(std::string_view block) noexcept;

    /// \returns true if the entry was found. Valid at the end of the text, or once `feed` has
    ///          returned true.
    bool found() const noexcept { return state_ == in_value || state_ == behind_value; }

private:
    enum state {
        in_mark, // in the byte-order mark
        outside, // of the wanted section
        in_head, // in the name of a section
        at_line, // in the wanted section, before a line's first visible byte
        in_name, // in the name of one of its entries
        in_rest, // in a line that is skipped
        in_value,
        behind_value,
        nowhere, // the section or the file has no such entry
    };

    char const * step(char const *& begin, char const * at, char const * end) noexcept;
    char const * match(std::string_view wanted, char terminator, state hit, state miss,
                       char const * at, char const * end) noexcept;

    std::string_view section_;
    std::string_view name_;
    value_sink & value_;
    state state_ = in_mark;
    std::size_t matched_ = 0; // bytes of the mark or of a name
    bool line_blank_ = true; // the last line of the blocks so far is blank
};

} // namespace zel::platform
