// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/digits.h"
#include <bit>
#include <cstddef>
#include <cstdint>

namespace zel {

/// A number at the start of a text: digits up to the first other byte.
struct digit_run {
    std::uint64_t value; ///< modulo 2^64
    std::size_t count; ///< of the digits, leading zeros included
};

namespace digit_runs {

static_assert(std::endian::native == std::endian::little);

constexpr std::uint64_t in_each_byte(unsigned char byte) { return 0x0101010101010101U * byte; }

/// Reads eight bytes, also beyond the end of the text. The sanitizers are told that this is
/// intended.
__attribute__((no_sanitize("address", "thread", "undefined"))) inline std::uint64_t
load_beyond_end(char const * text) noexcept
{
    using any_word [[gnu::may_alias, gnu::aligned(1)]] = std::uint64_t;
    return *reinterpret_cast<any_word const *>(text);
}

/// True if the 24 bytes from `text` on lie in one page. The host then lets all of them be read if
/// it lets the first be read. No host has pages smaller than 4 KiB.
inline bool stays_in_page(char const * text) noexcept
{
    constexpr std::uintptr_t page = 4096;
    return reinterpret_cast<std::uintptr_t>(text) % page <= page - 24;
}

/// Counts the lowest bytes that come before the first one with its highest bit set.
inline unsigned int count_before(std::uint64_t marks) noexcept
{
    return static_cast<unsigned int>(std::countr_zero(marks & in_each_byte(0x80))) / 8;
}

// The next eight bytes as digits: the value of each byte, and how many bytes at the front are
// digits. The additions raise each byte outside the range of digits to 0x80 or above. Only a byte
// that is no digit can carry into the next one, and the bytes behind it do not count.

struct decimal_values {
    std::uint64_t values;
    unsigned int count;

    explicit decimal_values(char const * text) noexcept
        : values(load_beyond_end(text) ^ in_each_byte('0'))
        , count(count_before((values + in_each_byte(0x76)) | values))
    {
    }

    /// The number that all eight digits form; the first digit is in the lowest byte. Neighbours are
    /// joined to numbers of two, then four, then eight digits.
    static std::uint64_t join(std::uint64_t values) noexcept
    {
        values = (values * 10 + (values >> 8)) & 0x00FF00FF00FF00FF;
        values = (values * 100 + (values >> 16)) & 0x0000FFFF0000FFFF;
        return (values * 10000 + (values >> 32)) & 0xFFFFFFFF;
    }
};

struct hexadecimal_values {
    std::uint64_t values;
    unsigned int count;

    explicit hexadecimal_values(char const * text) noexcept
    {
        std::uint64_t const bytes = load_beyond_end(text);
        std::uint64_t const decimal = bytes ^ in_each_byte('0');
        std::uint64_t const letters
            = (bytes | in_each_byte(0x20)) ^ in_each_byte('a' - 1); // 1 to 6
        std::uint64_t const no_decimal = (decimal + in_each_byte(0x76)) | decimal;
        std::uint64_t const no_letter
            = ~(letters + in_each_byte(0x7F)) | (letters + in_each_byte(0x79)) | letters;
        values = (bytes & in_each_byte(0x0F)) + (bytes >> 6 & in_each_byte(1)) * 9;
        count = count_before(no_decimal & no_letter);
    }

    static std::uint64_t join(std::uint64_t values) noexcept
    {
        values = (values << 4 | values >> 8) & 0x00FF00FF00FF00FF;
        values = (values << 8 | values >> 16) & 0x0000FFFF0000FFFF;
        return (values << 16 | values >> 32) & 0xFFFFFFFF;
    }
};

/// The number that fewer than eight digits form. They are moved to the end of the word, with zeros
/// in front.
template <typename digits> std::uint64_t join_fewer(digits const & from) noexcept
{
    return digits::join(from.values << 8 << (56 - 8 * from.count));
}

inline digit_run read_one_by_one(char const * text, digit_run run) noexcept
{
    for (unsigned int digit; (digit = decimal_digit(text[run.count])) <= 9; ++run.count) {
        run.value = run.value * 10 + digit;
    }
    return run;
}

inline digit_run read_hexadecimal_one_by_one(char const * text, digit_run run) noexcept
{
    for (unsigned int digit; (digit = hexadecimal_digit(text[run.count])) != no_digit;
         ++run.count) {
        run.value = run.value << 4 | digit;
    }
    return run;
}

} // namespace digit_runs

/// Reads the digits at the start of a text, eight at a time, so that texts of mixed lengths cause
/// few mispredicted branches.
/// \param text  contains a byte that is no digit, such as its NUL. Up to 23 bytes of the same page
///              behind that byte may be read too; their values do not matter.
[[gnu::always_inline]] inline digit_run read_digit_run(char const * text) noexcept
{
    using namespace digit_runs;
    if (!stays_in_page(text)) [[unlikely]] {
        return read_one_by_one(text, {0, 0});
    }
    decimal_values const first(text);
    if (first.count < 8) [[likely]] {
        return {join_fewer(first), first.count};
    }
    std::uint64_t const eight = decimal_values::join(first.values);
    decimal_values const second(text + 8);
    if (second.count < 8) [[likely]] {
        return {eight * powers_of_ten[second.count] + join_fewer(second), 8 + second.count};
    }
    std::uint64_t const sixteen = eight * 100'000'000 + decimal_values::join(second.values);
    decimal_values const third(text + 16);
    if (third.count < 8) [[likely]] {
        return {sixteen * powers_of_ten[third.count] + join_fewer(third), 16 + third.count};
    }
    return read_one_by_one(text, {sixteen, 16});
}

/// The same for hexadecimal digits, with letters of both cases.
[[gnu::always_inline]] inline digit_run read_hexadecimal_run(char const * text) noexcept
{
    using namespace digit_runs;
    if (!stays_in_page(text)) [[unlikely]] {
        return read_hexadecimal_one_by_one(text, {0, 0});
    }
    hexadecimal_values const first(text);
    if (first.count < 8) [[likely]] {
        return {join_fewer(first), first.count};
    }
    std::uint64_t const eight = hexadecimal_values::join(first.values);
    hexadecimal_values const second(text + 8);
    if (second.count < 8) [[likely]] {
        return {eight << 4 * second.count | join_fewer(second), 8 + second.count};
    }
    return read_hexadecimal_one_by_one(text, {eight, 8});
}

} // namespace zel
