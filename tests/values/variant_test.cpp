// SPDX-License-Identifier: MIT
#include "zel/values/variant.h"

#include "tests/support/allocations.h"
#include "tests/support/locale_for_a_test.h"
#include "tests/support/property.h"
#include "tests/support/raised.h"
#include <bit>
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

TEST(variant_conversion, reads_texts_as_the_parsers_do_and_numbers_as_far_as_they_fit)
{
    expect_for_any(variant_property, 8'000, [](auto & random) {
        if (random() % 2 == 0) { // around the powers of two, which the limits are
            std::uint64_t const number = (std::uint64_t{1} << random() % 64) + random() % 5 - 2;
            std::uint64_t const either = random() % 2 == 0 ? number : 0 - number;
            std::string const bytes(reinterpret_cast<char const *>(&either), sizeof either);
            // A width beside that of the number, or any.
            auto const width = std::bit_width(number) + random() % 3 - 2;
            return bytes + static_cast<char>(random() % 4 == 0 ? random() : width);
        }
        return random() % 2 == 0
            ? any_bytes(random, random() % 12, "0123456789.-xe7")
            : any_words(random, 3,
                        {"tRue", "false", "0x", "1", "0", "25", "-", "12", "8", "32768", ".5", "e3",
                         " ", "9223372036854775807", "x", "inf"});
    });
    struct {
        variant source;
        variant::vt_type target;
        std::uint32_t reason;
    } const rows[]
        = {{"-5"_s, variant::vt_uchar, variant::exception::out_of_range},
           {"9223372036854775808"_s, variant::vt_int64, variant::exception::out_of_range},
           {"4294967296"_s, variant::vt_long, variant::exception::data_convert_error},
           {"x"_s, variant::vt_double, variant::exception::data_convert_error},
           {" true"_s, variant::vt_bool, variant::exception::data_convert_error}};
    for (auto const & row : rows) {
        opened target;
        EXPECT_EQ(type_raised([&] { return target.change_type(row.target, row.source), 0; }),
                  row.reason);
        std::uint64_t const before = allocations::made;
        bool const readable = row.source.check_conversion(row.target);
        EXPECT_EQ(allocations::made, before); // an exception would take some
        EXPECT_FALSE(readable);
    }
}

TEST(variant_conversion, knows_no_decimal_comma)
{
    locale_for_a_test const comma("de_DE.UTF-8");
    EXPECT_TRUE(double(variant("1,5"_s)) == 1 && double(variant("1.5"_s)) == 1.5);
    EXPECT_EQ(string(variant(0.1F)) + " " + variant(999999.5) + variant(INT64_MIN),
              "0.1 1e+06-9223372036854775808");
}

} // namespace
