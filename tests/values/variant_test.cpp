// SPDX-License-Identifier: MIT
#include "zel/values/variant.h"

#include "tests/support/allocations.h"
#include "tests/support/locale_for_a_test.h"
#include "tests/support/property.h"
#include "tests/support/raised.h"
#include <charconv>
#include <cmath>
#include <cstdint>
#include <gtest/gtest.h>
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
    auto const expect = [](bool passes, auto check, auto value, int bits) {
        if (passes) {
            EXPECT_EQ(static_cast<decltype(value)>(check(value, static_cast<schar>(bits))),
                      std::trunc(value));
        } else {
            EXPECT_EQ(type_raised([&] { return check(value, static_cast<schar>(bits)); }),
                      variant::exception::out_of_range);
        }
    };
    for (int bits = 1; bits <= 64; ++bits) {
        SCOPED_TRACE(bits);
        std::uint64_t const top = UINT64_MAX >> (64 - bits); // the largest unsigned number
        auto const positive = static_cast<std::int64_t>(top >> 1);
        double const power = std::ldexp(1.0, bits); // the first one beyond
        // The largest double that passes: the last integer, or what lies before the power.
        double const last = bits <= 53 ? power - 1 : std::nextafter(power, 0);
        expect(true, opened::from_u_to_u, top, bits);
        expect(true, opened::from_u_to_s, top >> 1, bits);
        expect(true, opened::from_s_to_u, positive, bits);
        expect(true, opened::from_s_to_s, positive, bits);
        expect(true, opened::from_s_to_s, -positive - 1, bits);
        expect(true, opened::from_d_to_u, last, bits);
        expect(true, opened::from_d_to_s, -power / 2, bits);
        expect(false, opened::from_u_to_s, (top >> 1) + 1, bits);
        expect(false, opened::from_s_to_u, std::int64_t{-1}, bits);
        expect(false, opened::from_d_to_u, std::nextafter(last, HUGE_VAL), bits);
        expect(false, opened::from_d_to_u, -0.5, bits);
        expect(false, opened::from_d_to_s, power / 2, bits);
        expect(false, opened::from_d_to_s, std::nextafter(-power / 2, -HUGE_VAL), bits);
        if (bits < 64) {
            expect(false, opened::from_u_to_u, top + 1, bits);
            expect(false, opened::from_s_to_s, positive + 1, bits);
            expect(false, opened::from_s_to_s, -positive - 2, bits);
        }
    }
}

struct matrix_row {
    variant source;
    char const * cells;
};

// Every source type read as every target type: what comes out, or E for data_convert_error, R for
// out_of_range. As a text, = is the text itself up to its NUL, and '' is the empty one.
// clang-format off
std::vector<matrix_row> matrix()
{
    return {
        // bool char uchar short ushort long ulong int64 float double string color
        {variant(), "false 0 0 0 0 0 0 0 0 0 '' 0"}, {false, "false 0 0 0 0 0 0 0 0 0 false 0"},
        {true, "true 1 1 1 1 1 1 1 1 1 true 1"},
        {schar(-128), "true -128 R -128 R -128 R -128 -128 -128 -128 R"},
        {uchar(255), "true R 255 255 255 255 255 255 255 255 255 255"},
        {short(-32768), "true R R -32768 R -32768 R -32768 -32768 -32768 -32768 R"},
        {ushort(65535), "true R R R 65535 65535 65535 65535 65535 65535 65535 65535"},
        {INT32_MIN, "true R R R R -2147483648 R -2147483648 -2147483648 -2147483648 -2147483648 R"},
        {-1, "true -1 R -1 R -1 R -1 -1 -1 -1 R"},
        {INT32_MAX, "true R R R R 2147483647 2147483647 2147483647 2147483648 2147483647 2147483647 2147483647"},
        {4294967295U, "true R R R R R 4294967295 4294967295 4294967296 4294967295 4294967295 4294967295"},
        {INT64_MIN, "true R R R R R R -9223372036854775808 -9.223372e+18 -9223372036854775808 -9223372036854775808 R"},
        {16777217L, "true R R R R 16777217 16777217 16777217 16777216 16777217 16777217 16777217"},
        {9007199254740993L, "true R R R R R R 9007199254740993 9.007199e+15 9007199254740992 9007199254740993 R"},
        {INT64_MAX, "true R R R R R R 9223372036854775807 9.223372e+18 9223372036854775808 9223372036854775807 R"},
        {0.1F, "true 0 0 0 0 0 0 0 0.1 0.10000000149011612 0.1 0"},
        {127.5F, "true R 127 127 127 127 127 127 127.5 127.5 127.5 127"},
        {-128.5F, "true R R -128 R -128 R -128 -128.5 -128.5 -128.5 R"},
        {0.0, "false 0 0 0 0 0 0 0 0 0 0 0"},
        {-0.5, "true 0 R 0 R 0 R 0 -0.5 -0.5 -0.5 R"},
        {999999.5, "true R R R R 999999 999999 999999 999999.5 999999.5 1e+06 999999"},
        {0.00001, "true 0 0 0 0 0 0 0 1e-05 1e-05 1e-05 0"},
        {123456.5, "true R R R R 123456 123456 123456 123456.5 123456.5 123456 123456"},
        {1234567.0, "true R R R R 1234567 1234567 1234567 1234567 1234567 1.23457e+06 1234567"},
        {9223372036854775808.0, "true R R R R R R R 9.223372e+18 9223372036854775808 9.22337e+18 R"},
        {1e39, "true R R R R R R R inf 1e+39 1e+39 R"},
        {""_s, "E E E E E E E E E E = E"},
        {"0"_s, "false 0 0 0 0 0 0 0 0 0 = 0"},
        {"TRUE"_s, "true E E E E E E E E E = E"}, {" true"_s, "E E E E E E E E E E = E"},
        {"-5"_s, "E -5 R -5 R -5 E E -5 -5 = E"},
        {"12abc"_s, "E 12 12 12 12 E 76476 12 12 12 = 76476"},
        {"1,5"_s, "E 1 1 1 1 E E 1 1 1 = E"},
        {"9223372036854775808"_s, "E R R R R E E R 9.223372e+18 9223372036854775808 = E"},
        {"0x1.8p1"_s, "E 1 1 1 1 E E 0 3 3 = E"}, {".5"_s, "E E E E E E E E 0.5 0.5 = E"},
        {"1.7976931348623157e308"_s, "E 1 1 1 1 E E 1 inf 1.7976931348623157e+308 = E"},
        {"1\0abc"_s, "true 1 1 1 1 1 1 1 1 1 = 1"}, {"true\0x"_s, "true E E E E E E E E E = E"},
        {color_ref(0x332211), "true R R R R 3351057 3351057 3351057 3351057 3351057 3351057 3351057"},
        {color_ref(0xFFFFFFFF), "true R R R R R 4294967295 4294967295 4294967296 4294967295 4294967295 4294967295"},
    };
}
// clang-format on

// As many digits as tell the number from all others of its type, whatever the locale.
template <typename number> std::string shown(number value)
{
    char text[64];
    return std::string(text, std::to_chars(text, text + sizeof(text), value).ptr);
}
std::string shown(bool value) { return value ? "true" : "false"; }
std::string shown(string const & text) { return text.empty() ? "''" : text; }
std::string shown(color_ref color) { return shown(color.get_value()); }

template <typename T> void expect_cell(variant const & source, std::string const & expected)
{
    auto const type = variant(T()).type();
    SCOPED_TRACE(testing::Message() << source << " of " << source.type() << " as " << type);
    std::string read;
    try {
        T const value = static_cast<T>(source);
        EXPECT_EQ(variant(value) == source, value == value); // a NaN differs from itself
        read = shown(value);
    } catch (variant::exception & failure) {
        read = failure.get_type() == variant::exception::out_of_range ? "R" : "E";
    }
    EXPECT_EQ(read, expected);
    std::uint64_t const before = allocations::made;
    bool const readable = source.check_conversion(type);
    EXPECT_EQ(allocations::made, before); // an exception would take some
    EXPECT_EQ(readable, expected != "E" && expected != "R");
}

template <typename... T> void expect_cells(variant const & source, std::istream && words)
{
    std::ostringstream text;
    text << source;
    auto const next = [&] {
        std::string word;
        words >> word;
        return word == "=" ? shown(string(text.str())) : word;
    };
    (expect_cell<T>(source, next()), ...);
}

void expect_the_matrix()
{
    for (auto const & [source, cells] : matrix()) {
        expect_cells<bool, schar, uchar, short, ushort, std::int32_t, std::uint32_t, std::int64_t,
                     float, double, string, color_ref>(source, std::istringstream(cells));
        EXPECT_TRUE(source.check_conversion(variant::vt_empty));
    }
}

TEST(variant_conversion, reads_texts_as_the_parsers_do)
{
    expect_for_any(variant_property, 30'000, [](auto & random) {
        return any_bytes(random, random() % 12, "0123456789.-xe7");
    });
}

TEST(variant_conversion, follows_the_matrix) { expect_the_matrix(); }

TEST(variant_conversion, follows_the_matrix_under_a_decimal_comma_too)
{
    locale_for_a_test const comma("de_DE.UTF-8");
    expect_the_matrix();
}

} // namespace
