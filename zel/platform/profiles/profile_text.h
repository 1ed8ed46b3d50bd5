// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// The grammar of private-profile files, as work on text that needs no file.
namespace zel::platform {

constexpr bool is_profile_blank(char c) noexcept { return c == ' ' || c == '\t' || c == '\v'; }
constexpr bool is_line_end(char c) noexcept { return c == '\n' || c == '\r'; }

/// What may stand in front of the first line.
constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";

/// Takes the blanks off both ends, as for a name or a value in a file.
std::string_view trim_profile_blanks(std::string_view text) noexcept;
/// Takes off the spaces, and no other blank, as for a name that a caller passes.
std::string_view trim_spaces(std::string_view text) noexcept;

/// The first `\r` or `\n`, or `end`.
char const * find_line_end(char const * at, char const * end) noexcept;

/// The next `[` at or behind `at` that begins a section: nothing but blanks is in front of it on
/// its line. `end` when there is none.
/// \param begin        where the known text begins, at or in front of `at`.
/// \param begin_blank  whether the part of the line in front of `begin` is blank.
char const * find_section_head(char const * begin, char const * at, char const * end,
                               bool begin_blank) noexcept;

/// Takes the value of an entry as it stands between `=` and the end of its line, in pieces.
class value_sink {
public:
    virtual void take(std::string_view piece) noexcept = 0;

protected:
    ~value_sink() = default;
};

/// A value as text: no blanks around it and one pair of equal quotes off.
class text_value final : public value_sink {
public:
    /// \param size  of `buffer`; at least 1.
    text_value(char * buffer, std::uint32_t size) noexcept
        : buffer_(buffer)
        , size_(size)
    {
    }

    void take(std::string_view piece) noexcept override;
    /// Cuts the text to fit and puts a terminator behind it.
    /// \returns the bytes in front of the terminator.
    std::uint32_t finish() noexcept;

private:
    char * buffer_;
    std::size_t size_;
    std::size_t length_ = 0; // of the value so far without the blanks in front of it
    std::size_t visible_ = 0; // the same without those behind it
    char first_ = '\0';
    char last_ = '\0'; // the last that is no blank
};

/// A value as a block: two hexadecimal digits a byte, and two more for the low eight bits of the
/// sum of all bytes.
class block_value final : public value_sink {
public:
    /// \param bytes  receives what the block holds, at most as many as it has room for; may be
    ///               null.
    explicit block_value(unsigned char * bytes = nullptr, std::size_t room = 0) noexcept
        : bytes_(bytes)
        , room_(room)
    {
    }

    void take(std::string_view piece) noexcept override;
    /// Whether digits and checksum are right.
    bool sound() const noexcept;
    /// Bytes in the block, those among them that found no room.
    std::size_t size() const noexcept { return pairs_ == 0 ? 0 : pairs_ - 1; }

private:
    bool take(char c) noexcept;

    unsigned char * bytes_;
    std::size_t room_;
    std::size_t pairs_ = 0;
    unsigned char sum_ = 0; // of all pairs but the last, which may be the checksum
    unsigned char last_ = 0;
    signed char half_ = -1; // the first digit of a pair
    char quote_ = '\0';
    bool began_ = false; // something visible has come
    bool gap_ = false; // and a blank behind it
    bool closed_ = false; // and the second quote
    bool broken_ = false;
};

/// Looks for one entry in a text that comes in blocks of any size, and hands its value on.
///
/// Lines of other sections are not looked at beyond their first visible byte, nor are values of
/// other entries. Allocates nothing.
class entry_finder {
public:
    /// The names are the caller's, who may have spaces around them.
    entry_finder(std::string_view section, std::string_view name, value_sink & value) noexcept;

    /// Looks at the next bytes.
    /// \returns true when the rest of the text no longer matters.
    bool feed(std::string_view block) noexcept;

    /// \returns whether the entry was there, the text being at its end or no longer needed.
    bool found() const noexcept { return state_ == in_value || state_ == behind_value; }

private:
    enum state {
        in_mark, // of the byte order
        outside, // of the section that is looked for
        in_head, // of some section, behind its bracket
        at_line, // in the section, in front of a line's first visible byte
        in_name, // of one of its entries
        in_rest, // of a line that is of no use
        in_value,
        behind_value,
        nowhere, // the section, or the file, has no such entry
    };

    char const * step(char const *& begin, char const * at, char const * end) noexcept;
    char const * match(std::string_view wanted, char terminator, state hit, state miss,
                       char const * at, char const * end) noexcept;

    std::string_view section_;
    std::string_view name_;
    value_sink & value_;
    state state_ = in_mark;
    std::size_t matched_ = 0; // bytes of the mark or of a name
    bool line_blank_ = true; // the line in which the blocks so far ended
};

} // namespace zel::platform
