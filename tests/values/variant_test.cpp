// SPDX-License-Identifier: MIT
#include "zel/values/variant.h"

#include "tests/support/allocations.h"
#include "tests/support/locale_for_a_test.h"
#include "tests/support/property.h"
#include "tests/support/raised.h"
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

extern "C" property variant_property;

namespace {

using zel::color_ref;
using zel::string;
using zel::variant;
using schar = signed char;
using uchar = unsigned char;
using ushort = unsigned short;

string operator""_s(char const * text, std::size_t size)
{
    return string(text, static_cast<unsigned int>(size));
}

// The compiler refuses what would turn into a truth value.
template <typename... T>
constexpr bool takes_any
    = ((std::is_constructible_v<variant, T> || std::is_assignable_v<variant &, T>) || ...);
static_assert(!takes_any<char const *, void *, int *, variant *, std::nullptr_t, char const (&)[5],
                         void (*)(), void (&)(), int std::pair<int, int>::*, decltype([] {})>);
static_assert(std::is_constructible_v<variant, char const *, int>);

template <typename... T> void expect_all_stored(variant::vt_type type, std::int64_t number, T... of)
{
    for (variant const & stored : {variant(of)..., (variant("text"_s) = of)...}) {
        EXPECT_EQ(stored.type(), type);
        EXPECT_EQ(std::int64_t(stored), number);
    }
}

TEST(variant, has_a_type_for_every_integer_of_the_host)
{
    enum plain { letter = 65 };
    expect_all_stored(variant::vt_bool, 1, true, std::vector<bool>{true}[0]);
    expect_all_stored(variant::vt_char, 65, static_cast<schar>(65), 'A');
    expect_all_stored(variant::vt_uchar, 65, static_cast<uchar>(65), u8'A');
    expect_all_stored(variant::vt_short, -1, static_cast<short>(-1));
    expect_all_stored(variant::vt_ushort, 65, static_cast<ushort>(65), u'A');
    expect_all_stored(variant::vt_long, 65, 65, L'A', letter);
    expect_all_stored(variant::vt_ulong, 8, variant::vt_short, 8U, U'\b');
    expect_all_stored(variant::vt_int64, 8, 8L, 8LL, sizeof(double), 8ULL);
    expect_all_stored(variant::vt_int64, INT64_MAX, INT64_MAX + 0ULL, INT64_MAX + 0LL);
    expect_all_stored(variant::vt_float, 1, 1.0F);
    expect_all_stored(variant::vt_double, 1, 1.0);
    expect_all_stored(variant::vt_color, 1, color_ref(1));
    variant kept(1);
    EXPECT_EQ(message_raised<variant::exception>([&] {
                  kept = INT64_MAX + 1ULL;
                  return kept;
              }),
              "Zel Variant Exception: out of range");
    EXPECT_EQ(message_raised<variant::exception>([] { return short(variant("x"_s)); }),
              "Zel Variant Exception: Data convert error");
    EXPECT_EQ(kept, variant(1));
}

TEST(variant, takes_a_text_with_a_length)
{
    std::unique_ptr<char[]> const bare(new char[2]{'a', 'b'}); // nothing behind it may be read
    EXPECT_EQ(string(variant(bare.get(), 2)), "ab");
    EXPECT_EQ(string(variant("abcde", 3)), "abc");
    EXPECT_EQ(string(variant("ab\0c", 4)), "ab");
    EXPECT_EQ(string(variant("a\0b"_s)), "a");
    variant const of_null(static_cast<char const *>(nullptr), 7);
    EXPECT_TRUE(of_null.type() == variant::vt_string && string(of_null).empty());
}

TEST(variant, keeps_texts_of_its_own)
{
    string const long_text(100, 'x');
    variant a(long_text);
    variant b(a);
    b = "other"_s;
    EXPECT_EQ(string(a), long_text);
    variant & self = a;
    a = self;
    a = std::move(self);
    swap(a, b);
    std::ostringstream stream;
    stream << b << ' ' << a << ' ' << variant() << variant(true) << variant(0.5F);
    EXPECT_EQ(stream.str(), long_text + " other true0.5");
    for (variant value : {variant(true), variant(-7), variant(0.1), variant(0.1F), variant(),
                          variant(color_ref(7)), variant("t"_s)}) {
        variant target("text"_s);
        target = value;
        EXPECT_TRUE(target.type() == value.type() && target == value);
        target = std::move(value);
        EXPECT_EQ(value.type(), variant::vt_empty);
        target = variant();
        EXPECT_EQ(target, variant());
    }
}

TEST(variant, compares_in_the_type_on_the_left)
{
    // clang-format off
    struct { variant left, right; bool equal, equal_the_other_way; } const rows[] = {
        {1, "1"_s, true, true}, {1, "01"_s, true, false}, {true, "TRUE"_s, true, false},
        {true, "yes"_s, false, false}, {variant(), variant(), true, true},
        {schar(1), 300, false, false}, {schar(1), 1.0, true, true},
        {1, 1.5, true, false}, // the fraction goes first
        {0.1F, 0.1, true, false}, {double(NAN), double(NAN), false, false},
        {float(NAN), 0, false, false}, {color_ref(16), "0x10"_s, true, false},
        {-1, color_ref(0xFFFFFFFF), false, false}, {""_s, variant(), true, false},
        {"Text"_s, "text"_s, false, false},
        {"a"_s, "a\0b"_s, true, false}, // what is read of the right side ends at its NUL
        {"a\0b"_s, "a\0b"_s, false, false},
        {"abcdefghijklmnopqrstuvwxyz"_s, "abcdefghijklmnopqrstuvwxyz"_s, true, true},
        {"abcdefghijklmnopqrstuvwxyz"_s, "abcdefghijklmnopqrstuvwxy"_s, false, false},
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(testing::Message() << row.left << ' ' << row.right);
        EXPECT_EQ(row.left == row.right, row.equal);
        EXPECT_EQ(row.left != row.right, !row.equal);
        EXPECT_EQ(row.right == row.left, row.equal_the_other_way);
    }
    EXPECT_TRUE(variant("1"_s) == 1 && 1 == variant("01"_s) && 1.5 != variant(1));
    EXPECT_TRUE(variant(1) == "01"_s && "01"_s != variant(1) && std::string("1") == variant(1));
}

TEST(variant, is_a_text_or_a_colour_where_one_is_wanted)
{
    variant const seven(7);
    string text("zel");
    std::string const standard("std");
    EXPECT_EQ(text + seven + seven, "zel77");
    EXPECT_EQ(seven + text, "7zel");
    EXPECT_EQ(seven + string(text) + standard, "7zelstd");
    EXPECT_EQ(standard + seven, "std7");
    EXPECT_EQ(seven + standard, "7std");
    text = seven;
    EXPECT_EQ(text, "7");
    color_ref color;
    color = variant(0x10U);
    EXPECT_EQ(color, color_ref(0x10));
}

struct opened : variant {
    using variant::change_type;
    using variant::from_d_to_s;
    using variant::from_d_to_u;
    using variant::from_s_to_s;
    using variant::from_s_to_u;
    using variant::from_u_to_s;
    using variant::from_u_to_u;
    using variant::type;
    using variant::variant;
};

TEST(variant, lets_a_derived_class_change_the_tag_alone)
{
    opened value(-2);
    value.type(variant::vt_uchar);
    EXPECT_EQ(int(value), 0xFE);
    value.type(variant::vt_long);
    EXPECT_EQ(int(value), -2);
    for (int const payload : {-2, 0x100, 1}) {
        value = payload;
        value.type(variant::vt_bool);
        bool const truth = payload != 0x100; // its low byte decides
        EXPECT_TRUE(bool(value) == truth && int(value) == truth && value == truth);
        EXPECT_EQ(string(value), truth ? "true" : "false");
        EXPECT_EQ(variant(truth), value);
    }
    opened first(0x1234), second(0x5634);
    first.type(variant::vt_uchar);
    second.type(variant::vt_uchar);
    EXPECT_EQ(first, second);
    value.type(variant::vt_string);
    EXPECT_EQ(string(value), "");
    value.change_type(variant::vt_string, variant("text"_s));
    value.type(variant::vt_string);
    EXPECT_EQ(string(value), "text");
    EXPECT_THROW(value.change_type(variant::vt_short, variant("x"_s)), variant::exception);
    EXPECT_EQ(value.type(), variant::vt_short);
    value.change_type(static_cast<variant::vt_type>(256), variant(1));
    EXPECT_TRUE(value.check_conversion(variant::vt_int64));
    EXPECT_EQ(string(value), "");
}

// Whether every check takes the numbers of its range and no others, for each width.
TEST(variant, checks_ranges_to_the_last_number)
{
    int bits = 1;
    auto const expect = [&](auto check, auto value, bool into_signed) {
        long double const power = std::ldexp(1.0L, into_signed ? bits - 1 : bits);
        bool const fits = value <= power - 1 && value >= (into_signed ? -power : 0);
        decltype(check(value, 1)) result = 0;
        EXPECT_EQ(type_raised([&] { return result = check(value, static_cast<schar>(bits)); }),
                  fits ? 0U : std::uint32_t{variant::exception::out_of_range});
        EXPECT_EQ(result, fits ? std::trunc(static_cast<long double>(value)) : 0);
    };
    for (; bits <= 64; ++bits) {
        for (int edge = bits - 2; edge <= bits; ++edge) {
            for (long double const more : {-1.0L, -0.5L, 0.0L, 0.5L, 1.0L}) {
                for (long double const sign : {1, -1}) {
                    long double const number = sign * (std::ldexp(1.0L, edge) + more);
                    SCOPED_TRACE(testing::Message() << number << " in " << bits << " bits");
                    expect(opened::from_d_to_u, static_cast<double>(number), false);
                    expect(opened::from_d_to_s, static_cast<double>(number), true);
                    if (number >= 0 && number < 0x1p64L) {
                        expect(opened::from_u_to_u, static_cast<std::uint64_t>(number), false);
                        expect(opened::from_u_to_s, static_cast<std::uint64_t>(number), true);
                    }
                    if (number >= -0x1p63L && number < 0x1p63L) {
                        expect(opened::from_s_to_u, static_cast<std::int64_t>(number), false);
                        expect(opened::from_s_to_s, static_cast<std::int64_t>(number), true);
                    }
                }
            }
        }
    }
}

template <typename T, typename S> void expect_read(variant const & source, S number)
{
    using limits = std::numeric_limits<T>;
    constexpr bool is_integer = std::is_integral_v<T> && !std::is_same_v<T, bool>;
    auto const exact = static_cast<long double>(number);
    bool const fits = !is_integer || (exact >= limits::min() && exact <= limits::max());
    auto const type = variant(T()).type();
    std::uint64_t const before = allocations::made;
    bool const readable = source.check_conversion(type);
    EXPECT_EQ(allocations::made, before); // an exception would take some
    EXPECT_EQ(readable, fits) << type;
    if (fits) {
        auto const wanted = is_integer ? static_cast<T>(number) // of 64 bits, no double has all
                                       : static_cast<T>(static_cast<double>(number));
        EXPECT_EQ(static_cast<T>(source), wanted);
        EXPECT_EQ(variant(wanted), source);
    } else {
        EXPECT_EQ(type_raised([&] { return static_cast<T>(source); }),
                  variant::exception::out_of_range);
    }
}

// As every type: itself without its fraction, or refused.
template <typename S> void expect_reads(variant const & source, S number)
{
    SCOPED_TRACE(testing::Message() << source << " of " << source.type());
    auto const each = [&]<typename... T>() { (expect_read<T>(source, number), ...); };
    each.template operator()<bool, schar, uchar, short, ushort, std::int32_t, std::uint32_t,
                             std::int64_t, float, double>();
    bool const is_color = source.check_conversion(variant::vt_ulong);
    EXPECT_EQ(source.check_conversion(variant::vt_color), is_color);
    EXPECT_TRUE(!is_color || color_ref(source) == color_ref(std::uint32_t(source)));
    EXPECT_TRUE(source.check_conversion(variant::vt_empty));
}

template <typename... S> void expect_reads_of(long double number)
{
    auto const of_one = [&]<typename T>(T) {
        using limits = std::numeric_limits<T>;
        if (number >= limits::lowest() && number <= limits::max()) {
            expect_reads(static_cast<T>(number), static_cast<T>(number));
        }
    };
    (of_one(S()), ...);
}

TEST(variant_conversion, takes_numbers_as_far_as_they_fit_under_a_decimal_comma_too)
{
    for (char const * name : {"C", "de_DE.UTF-8"}) {
        locale_for_a_test const locale(name);
        for (int bit = 0; bit < 140; ++bit) {
            for (long double const more : {-1.0L, -0.5L, 0.0L, 0.5L, 1.0L}) {
                for (long double const sign : {1, -1}) {
                    expect_reads_of<schar, uchar, short, ushort, std::int32_t, std::uint32_t,
                                    std::int64_t, float, double>(sign
                                                                 * (std::ldexp(1.0L, bit) + more));
                }
            }
        }
        expect_reads(variant(), 0);
        expect_reads(false, 0);
        expect_reads(true, 1);
        expect_reads(color_ref(0x332211), 0x332211);
        expect_reads(color_ref(0xFFFFFFFF), 0xFFFFFFFF);
        EXPECT_TRUE(double(variant("1,5"_s)) == 1 && double(variant("1.5"_s)) == 1.5);
        EXPECT_EQ(string(variant(0.1F)) + " " + variant(999999.5) + variant(INT64_MIN),
                  "0.1 1e+06-9223372036854775808");
    }
}

TEST(variant_conversion, reads_texts_as_the_parsers_do)
{
    expect_for_any(variant_property, 30'000, [](auto & random) {
        return random() % 2 == 0
            ? any_bytes(random, random() % 12, "0123456789.-xe7")
            : any_words(random, 3,
                        {"tRue", "false", "0x", "1", "0", "25", "-", "12", "8", "32768", ".5", "e3",
                         " ", "9223372036854775807", "x", "inf"});
    });
    auto const reason = [](auto type, char const * text) {
        return type_raised([&] { return static_cast<decltype(type)>(variant(string(text))); });
    };
    using failure = variant::exception;
    EXPECT_TRUE(reason(uchar(), "-5") == failure::out_of_range
                && reason(std::int64_t(), "9223372036854775808") == failure::out_of_range
                && reason(0, "4294967296") == failure::data_convert_error
                && reason(0.0, "x") == failure::data_convert_error
                && reason(false, " true") == failure::data_convert_error);
}

} // namespace
