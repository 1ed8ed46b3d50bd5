// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include <compare>
#include <concepts>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace zel {

/// A pointer to text, or a type that converts to one.
template <typename T>
concept null_terminated = std::convertible_to<T const &, char const *>;

/// The text type of the library: the standard byte string, with a fixed rule for null pointers and
/// with the text operations that the library needs.
///
/// It adds no field, so it can be used wherever a `std::string` is read, and results of the
/// standard class convert back. One character is one byte; a NUL is an ordinary byte unless a
/// member says that it stops there. Building operations treat a null `char const *` as the empty
/// text; `replace`, `format`, the trim family and the operators raise `memory_exception` with
/// `null_pointer` for it and leave the string unchanged. Positions beyond the end raise
/// `std::out_of_range`, exhausted memory `std::bad_alloc`, both from the standard class. A string
/// is a plain value: many readers or one writer.
/// \code
///     zel::string line;
///     line.format("%s=%d", "width", 120);
///     for (auto const & field : line.split("=")) { use(field); }
/// \endcode
class ZEL_API string : public std::basic_string<char> {
    using base = std::basic_string<char>;

    template <typename T>
    static constexpr bool of_this_class = std::derived_from<std::remove_cvref_t<T>, string>;
    template <typename T>
    static constexpr bool text_operand
        = std::same_as<
              std::remove_cvref_t<T>,
              char> || null_terminated<std::remove_cvref_t<T>> || std::convertible_to<std::remove_cvref_t<T> const &, std::string_view>;

public:
    /// Blank, tab, line feed, carriage return.
    static char const ms_default_white_space_string[5];
    /// White space and "[]{}(),.:;!%^&*+-=/?|".
    static char const ms_default_delimeter_string[26];

    string() noexcept = default;
    /// A null text counts as an empty one.
    string(char const * text)
        : base(text == nullptr ? "" : text)
    {
    }
    /// The first `count` bytes of `text`, NUL bytes included.
    string(char const * text, unsigned int count)
        : base(text == nullptr ? "" : text, text == nullptr ? 0 : count)
    {
    }
    /// `count` copies of `c`.
    string(unsigned int count, char c)
        : base(count, c)
    {
    }
    string(string const &) = default;
    string(string &&) noexcept = default;
    /// The part of `other` that starts at `position`, at most `count` bytes.
    string(string const & other, unsigned int position, unsigned int count)
        : base(other, position, count)
    {
    }

    /// The bytes of another text, NUL bytes included.
    string(base const & text)
        : base(text)
    {
    }
    string(base && text) noexcept
        : base(std::move(text))
    {
    }
    string(std::string_view text)
        : base(text)
    {
    }
    string(std::initializer_list<char> characters)
        : base(characters)
    {
    }
    ~string() = default;

    string & operator=(string const &) = default;
    string & operator=(string &&) noexcept = default;
    /// A null text counts as an empty one.
    string & operator=(char const * text)
    {
        base::assign(text == nullptr ? "" : text);
        return *this;
    }
    string & operator=(char c)
    {
        base::assign(1, c);
        return *this;
    }
    string & operator=(base const & text)
    {
        base::assign(text);
        return *this;
    }
    string & operator=(base && text) noexcept
    {
        base::operator=(std::move(text));
        return *this;
    }
    string & operator=(std::string_view text)
    {
        base::assign(text);
        return *this;
    }
    string & operator=(std::initializer_list<char> characters)
    {
        base::assign(characters);
        return *this;
    }
    /// For types that convert to a text and to a character, such as a `variant`: uses the text.
    template <typename T>
    requires requires(T const & source) { source.operator string(); }
    string & operator=(T const & source) { return *this = source.operator string(); }

    /// Appends; a null text counts as an empty one.
    string & operator+=(string const & text)
    {
        base::append(text);
        return *this;
    }
    string & operator+=(char const * text)
    {
        if (text != nullptr) {
            base::append(text);
        }
        return *this;
    }
    string & operator+=(char c)
    {
        base::push_back(c);
        return *this;
    }
    string & operator+=(base const & text)
    {
        base::append(text);
        return *this;
    }
    string & operator+=(std::string_view text)
    {
        base::append(text);
        return *this;
    }
    string & operator+=(std::initializer_list<char> characters)
    {
        base::append(characters);
        return *this;
    }

    /// \throws memory_exception  `null_pointer` with the text "zel::string" when `p` is null.
    static void validate_ptr(char const * p)
    {
        if (p == nullptr) [[unlikely]] {
            throw_null_ptr_exception();
        }
    }

    /// The first `count` bytes; the whole text when it is shorter.
    string left(unsigned int count) const { return string(base::substr(0, count)); }

    /// The last `count` bytes.
    /// \throws std::out_of_range  when the text is shorter than `count`.
    string right(unsigned int count) const { return string(base::substr(size() - count)); }

    /// The bytes from `first` up to, not including, `last`: an end position, not a length. A `last`
    /// beyond the end or below `first` gives everything from `first` on.
    /// \throws std::out_of_range  when `first` is above `size()`.
    string mid(unsigned int first, unsigned int last) const;

    /// Replaces `count` bytes at `position`, or those from `first` up to `last`.
    /// \returns this string.
    /// \throws std::out_of_range  when `position` is above `size()`.
    string & replace(unsigned int position, unsigned int count, string const & text)
    {
        base::replace(position, count, text);
        return *this;
    }
    string & replace(unsigned int position, unsigned int count, string const & text,
                     unsigned int text_position, unsigned int text_count)
    {
        base::replace(position, count, text, text_position, text_count);
        return *this;
    }
    string & replace(unsigned int position, unsigned int count, unsigned int n, char c)
    {
        base::replace(position, count, n, c);
        return *this;
    }
    /// \throws memory_exception  `null_pointer` when `text` is null.
    string & replace(unsigned int position, unsigned int count, char const * text)
    {
        validate_ptr(text);
        base::replace(position, count, text);
        return *this;
    }
    string & replace(unsigned int position, unsigned int count, char const * text,
                     unsigned int text_count)
    {
        validate_ptr(text);
        base::replace(position, count, text, text_count);
        return *this;
    }
    string & replace(const_iterator first, const_iterator last, string const & text)
    {
        base::replace(first, last, text);
        return *this;
    }
    string & replace(const_iterator first, const_iterator last, unsigned int n, char c)
    {
        base::replace(first, last, n, c);
        return *this;
    }
    string & replace(const_iterator first, const_iterator last, const_iterator text_first,
                     const_iterator text_last)
    {
        base::replace(first, last, text_first, text_last);
        return *this;
    }
    string & replace(const_iterator first, const_iterator last, char const * text)
    {
        validate_ptr(text);
        base::replace(first, last, text);
        return *this;
    }
    string & replace(const_iterator first, const_iterator last, char const * text,
                     unsigned int text_count)
    {
        validate_ptr(text);
        base::replace(first, last, text, text_count);
        return *this;
    }

    /// Replaces every occurrence of `from`, from left to right without overlaps; inserted text is
    /// not searched. An empty `from` is never found.
    /// \returns this string, which is unchanged when an exception leaves.
    string & replace(string const & from, string const & to);

    /// A 32-bit hash (Jenkins, one at a time, over signed bytes) of the first `count` bytes.
    /// \param count  0xFFFFFFFF and anything above `size()` mean the whole text, however long.
    std::uint32_t hash(std::uint32_t count) const noexcept;

    /// A copy of at most `length` bytes whose last 8 are the hash of the whole text in upper-case
    /// hexadecimal digits. The copy is unchanged when the text is short enough, or when `length` is
    /// 8 or less.
    string truncate_hash(std::uint32_t length) const;

    /// Removes every byte that occurs in `set`, which ends at its first NUL.
    void remove(string const & set);

    /// Changes the ASCII letters. If the program has set a locale with one byte per character, also
    /// changes that locale's letters. The text then ends at its first NUL.
    void to_lower();
    void to_upper();

    /// A copy in which tab, line feed, carriage return, `"`, `&`, `<` and `>` are escaped.
    string normalize_for_xml() const;

    /// \returns the position of the first byte that is in `set`, or -1. Both texts end at their
    ///          first NUL.
    /// \throws std::out_of_range  when that position is above 0x7FFFFFFF.
    std::int32_t find_one_of(string const & set);

    /// Strips the bytes of `set` from the start, the end or both.
    /// \throws memory_exception  `null_pointer` when `set` is null.
    void trim_left(char const * set = ms_default_white_space_string);
    void trim_right(char const * set = ms_default_white_space_string);
    void trim(char const * set = ms_default_white_space_string);

    /// Replaces the text by what `printf` would write. The arguments may point into this string. An
    /// empty result leaves the text unchanged.
    /// \throws memory_exception   `null_pointer` when `format_text` is null.
    /// \throws std::length_error  when the result is longer than 0x7FFFFFFF bytes.
    /// \throws std::invalid_argument  when the host cannot format it (`EILSEQ` of a wide text).
    /// \returns this string, which is unchanged when an exception leaves.
    string & format(char const * format_text, ...) ZEL_PRINTF(2, 3);
    /// The same with an argument list. It is consumed, and the caller still has to call `va_end`.
    string & format_v(char const * format_text, std::va_list arguments) ZEL_PRINTF(2, 0);

    /// Word number `index`, from 0. A word is a run of bytes that are not in `delimiters`. Empty
    /// when there is no such word. The text ends at its first NUL.
    string word(std::int32_t index, string const & delimiters = ms_default_delimeter_string) const;

    /// Field number `index`, from 0. Fields are separated by one `separator` each and may be empty.
    /// A missing field is empty. The text ends at its first NUL.
    string extract_sub_string(std::uint32_t index, char separator) const;

    /// All pieces between occurrences of `separator`, including empty ones. An empty `separator` is
    /// never found.
    /// \param skip_empty_tail  true leaves out an empty last piece.
    std::vector<string> split(string const & separator, bool skip_empty_tail = false) const;

    /// Does nothing: this host has no string resources.
    void load_string(std::uint32_t id) noexcept;

    // The operators are found only for a `string` operand: `using namespace zel` does not add them
    // to expressions of other texts.

    /// Joins both texts. Besides a text, `+` takes a `char` and no other number.
    /// \throws memory_exception  `null_pointer` when a `char const *` is null.
    template <typename left_type, typename right_type>
    requires of_this_class<left_type> && text_operand<right_type>
    friend string operator+(left_type && left, right_type && right)
    {
        return joined(std::forward<left_type>(left), text_of(right));
    }
    template <typename left_type, typename right_type>
    requires(!of_this_class<left_type>)
        && text_operand<left_type> && of_this_class<right_type> friend string
        operator+(left_type && left, right_type && right)
    {
        if constexpr (std::same_as<left_type, base>) { // an rvalue, whose memory is reused
            return joined(string(std::move(left)), right);
        } else {
            return joined(text_of(left), right);
        }
    }

    /// Compares with a text up to its NUL.
    /// \throws memory_exception  `null_pointer` when `b` is null.
    template <null_terminated text> friend bool operator==(string const & a, text const & b)
    {
        return a.compare(text_of(b)) == 0;
    }
    template <null_terminated text>
    friend std::strong_ordering operator<=>(string const & a, text const & b)
    {
        return a.compare(text_of(b)) <=> 0;
    }

protected:
    /// \throws memory_exception  `null_pointer` with the text "zel::string".
    [[noreturn]] static void throw_null_ptr_exception();

private:
    template <typename text> static std::string_view text_of(text const & operand)
    {
        if constexpr (std::same_as<text, char>) {
            return std::string_view(&operand, 1);
        } else if constexpr (null_terminated<text>) {
            char const * const first = operand;
            validate_ptr(first);
            return first;
        } else {
            return operand;
        }
    }

    static string joined(std::string_view left, std::string_view right)
    {
        string result;
        result.reserve(left.size() + right.size());
        result.append(left).append(right);
        return result;
    }
    static string joined(string && left, std::string_view right)
    {
        left.append(right);
        return std::move(left);
    }
};

static_assert(sizeof(string) == sizeof(std::string));

} // namespace zel

template <> struct std::hash<zel::string> {
    std::size_t operator()(zel::string const & text) const noexcept
    {
        return std::hash<std::string_view>()(text);
    }
};
