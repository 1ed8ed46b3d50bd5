// SPDX-License-Identifier: MIT
#include "zel/text/string.h"

#include "tests/support/locale_for_a_test.h"
#include "tests/support/property.h"
#include "tests/support/raised.h"
#include "zel/core/exception.h"
#include <cerrno>
#include <cfenv>
#include <cfloat>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string_view>
#include <type_traits>
#include <unordered_set>

extern "C" property text_property;
extern "C" property format_property;
void expect_like_printf(char const * format, ...); // of the same fuzzer

namespace {

using namespace std::string_literals;
using zel::string;

struct outcome {
    string result;
    string expected;
};
void expect_equal(std::vector<outcome> const & outcomes)
{
    for (auto const & row : outcomes) {
        EXPECT_EQ(row.result, row.expected) << "row " << &row - outcomes.data();
    }
}

static_assert(std::is_nothrow_move_constructible_v<string>);
static_assert(std::is_nothrow_move_assignable_v<string> && !std::is_polymorphic_v<string>);

// clang-format off
TEST(string, takes_what_the_standard_class_gives_and_is_compared_like_it)
{
    string s = "x"s;
    s = std::string_view("yy");
    EXPECT_TRUE(s == "yy" && s == "yy"s && s == std::string_view("yy") && "yy" == s && s != "x");
    s = 'c';
    expect_equal({
        {s, "c"}, {string("x") + "y", "xy"}, {string(3, 'c'), "ccc"}, {string("abc", 2), "ab"},
        {"x" + s + 'd' + "e"s + std::string_view("f") + string("g"), "xcdefg"},
        {string("abcdef", 2, 3), "cde"}, {string("ab\0de", 5), "ab\0de"s}, {"ab\0de", "ab"},
    });
    EXPECT_TRUE((std::unordered_set<string>{"a", "b"}.contains("b")));
    std::stringstream stream("word next");
    stream >> s;
    stream.str("");
    stream << s;
    EXPECT_EQ(stream.str(), "word");
    std::string const standard = s;
    s = standard.substr(1);
    EXPECT_EQ(s, "ord");
    s.clear();
    s += {'a', 'b'};
    EXPECT_TRUE(s < string("b") && s < "b" && "aa" < s && s >= "ab"s);
}

TEST(string, takes_a_null_pointer_for_nothing_or_refuses_it)
{
    char const * const null = nullptr;
    string s("text");
    s += null;
    expect_equal({{null, ""}, {string(null, 7), ""}, {s, "text"}});
    auto const list = [&](char const * format, ...) {
        std::va_list arguments;
        va_start(arguments, format);
        s.format_v(null, arguments);
        va_end(arguments);
    };
    std::function<void()> const refused[] = {
        [&] { s.replace(0, 1, null); }, [&] { s.replace(s.cbegin(), s.cend(), null); },
        [&] { s.replace(0, 1, null, 2); }, [&] { s.replace(s.cbegin(), s.cend(), null, 2); },
        [&] { s = s + null; }, [&] { s = null + s; }, [&] { s = std::move(s) + null; },
        [&] { EXPECT_FALSE(s == null); }, [&] { EXPECT_FALSE(s < null); },
        [&] { s.trim(null); }, [&] { s.trim_left(null); }, [&] { s.trim_right(null); },
        [&] { s.format(null, 0); }, [&] { list(""); }, [&] { string::validate_ptr(null); },
    };
    for (auto const & call : refused) {
        SCOPED_TRACE(&call - refused);
        EXPECT_EQ(message_raised<zel::memory_exception>(call), "Zel Memory Exception: Null Pointer zel::string");
        EXPECT_EQ(s, "text");
    }
    string::validate_ptr("");
    s = null;
    EXPECT_EQ(s, "");
}

TEST(string_operations, agree_with_plain_containers)
{
    // Buffers are in it too.
    expect_for_any(text_property, 1000, [](auto & random) {
        return any_bytes(random, 3000, "abZ,, <&>\"\t\n\r\x10");
    });
}

TEST(string_operations, cut_and_change)
{
    string blank(" \t\n\ra\v \r"), own("aba"), s("aaa"), c("abcab"), lower("\x01@AZ[`az{\x7F");
    blank.trim();
    own.trim(own.c_str() + 2);
    lower.to_lower();
    c.load_string(1);
    expect_equal({
        {blank, "a\v"}, {own, "b"}, {c, "abcab"}, {lower, "\x01@az[`az{\x7F"},
        {string("\0 a"s).word(0, "\0 "s), ""}, {string("one(two)").word(1), "two"},
        {string("ab").extract_sub_string(0, '\0'), "ab"}, {string("ab").extract_sub_string(1, '\0'), ""},
        {s.replace("aa", "b"), "ba"}, {s.replace("", "x"), "ba"}, {s.replace(s, s), "ba"},
        {s.replace("a", s), "bba"}, {s.replace(s, "z"), "z"},
        {s.replace(s.cbegin(), s.cend(), "<>"), "<>"}, {s.replace(s.cend(), s.cend(), "!?", 1), "<>!"},
        {s.replace(s.cbegin(), s.cbegin() + 1, 2, 'x'), "xx>!"},
        {string("abcdefghijklmnopqrstuvwxyz").truncate_hash(12), "abcdB9F5ED0A"},
        {string(200, 'x').left(UINT_MAX), string(200, 'x')},
    });
}
// clang-format on

// For formats that the compiler does not see; one without any argument it takes for an oversight.
constexpr int unused = 0;

TEST(string_format, replaces_the_text_unless_the_result_is_empty)
{
    string s("old");
    std::string const empty;
    EXPECT_EQ(s.format(empty.c_str(), unused), "old");
    EXPECT_EQ(s.format("%s", ""), "old");
    s = "%d-%d";
    EXPECT_EQ(s.format(s.c_str(), 1, 2), "1-2");
    std::string const positional = "%1$s"; // goes to the runtime
    for (unsigned int const size : {127U, 128U, 1024U, 65'536U}) {
        string const text(size, 'x');
        s = "%s";
        expect_equal({{string().format(text.c_str(), unused), text},
                      {string().format(positional.c_str(), text.c_str()), text},
                      {s.format(s.c_str(), text.c_str()), text},
                      {s.format("<%s>", s.c_str()), "<" + text + ">"}});
    }
}

TEST(string_format, says_what_it_cannot_do_and_keeps_the_text)
{
    string s("old");
    for (std::string const format : {"x%*d", "%99999999999d", "%.99999999999d"}) {
        // Out of the compiler's sight, which would refuse them.
        EXPECT_THROW(s.format(format.c_str(), INT_MAX, 1), std::length_error) << format;
        EXPECT_THROW(s.format(format.c_str(), INT_MIN, 1), std::length_error) << format;
    }
    std::string const open = "open %";
    EXPECT_THROW(s.format("%ls", L"\xD800"), std::invalid_argument);
    EXPECT_THROW(s.format(open.c_str(), unused), std::invalid_argument);
    EXPECT_EQ(s, "old");
}

TEST(string_format, equals_the_runtime_byte_for_byte)
{
    expect_for_any(format_property, 60'000, [](auto & random) {
        if (random() % 3 != 0) {
            return any_bytes(random, 40, std::string_view("\0\1\2\3\4\5\6\7\x30\xFF", 10));
        }
        double const numbers[] = {0,    -0.0,  1,       0.1,          100,     123456,   1234565,
                                  0.5,  -2.5,  1e-5,    0.0001,       9.5,     999999.5, 0.0000305,
                                  1e22, 1e300, DBL_MIN, DBL_TRUE_MIN, DBL_MAX, HUGE_VAL, NAN};
        // No text, one flag, and a width or a precision in front of a fraction.
        std::string input{0, 1, static_cast<char>(random() % 5), random() % 4 == 0 ? '\1' : '\6'};
        input.append(2, static_cast<char>(random() % 25)).append(1, '\1');
        input += static_cast<char>(random());
        return input.append(reinterpret_cast<char const *>(&numbers[random() % 21]), 8);
    });
    std::string const null_format = "%s|%.3s|%10s|%-c|%+c|% 5d|%#o";
    char const * const null = nullptr;
    expect_like_printf(null_format.c_str(), null, null, null, 'a', 'b', -3, 0);
    expect_like_printf("%2$s %1$d", 1, "two");
    expect_like_printf("%*d|%-*d|%.*d|%.*s", -5, 1, 5, 2, -1, 3, 2, "abc");
    expect_like_printf("%ls|%lc|%S", L"wide", L'w', L"old");
    expect_like_printf("%y %5% %'d %qd", 1, 2LL);
    for (int const rounding : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        std::fesetround(rounding);
        expect_like_printf("%g %.2f %.0f", 0.1234567, 2.675, 0.5);
    }
    std::fesetround(FE_TONEAREST);
    errno = ENOENT;
    std::string const error_text = "%d %m";
    EXPECT_EQ(string().format(error_text.c_str(), 1), "1 No such file or directory");
    // No NUL within the precision: what lies behind it is not read.
    std::unique_ptr<char[]> const bare(new char[3]{'a', 'b', 'c'});
    EXPECT_EQ(string().format("%.3s|%.2s", bare.get(), bare.get()), "abc|ab");
}

TEST(string_locale, gives_the_decimal_point)
{
    locale_for_a_test const german("de_DE.UTF-8", LC_NUMERIC);
    expect_like_printf("%g %f %.3e", 1.5, 2.5, 3.5);
}

TEST(string_locale, gives_the_case_of_single_bytes)
{
    string const umlauts("Aa\xC4\xE4\xD7");
    for (char const * const name : {"de_DE.ISO-8859-1", "de_DE.UTF-8"}) {
        SCOPED_TRACE(name);
        locale_for_a_test const german(name, LC_CTYPE);
        bool const one_byte = MB_CUR_MAX == 1;
        string lower = umlauts, upper = umlauts;
        lower.to_lower();
        upper.to_upper();
        EXPECT_EQ(lower, one_byte ? "aa\xE4\xE4\xD7" : "aa\xC4\xE4\xD7");
        EXPECT_EQ(upper, one_byte ? "AA\xC4\xC4\xD7" : "AA\xC4\xE4\xD7");
    }
}

} // namespace
