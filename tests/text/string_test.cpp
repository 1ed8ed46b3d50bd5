// SPDX-License-Identifier: MIT
#include "zel/text/string.h"

#include "tests/support/locale_for_a_test.h"
#include "tests/support/raised.h"
#include "zel/core/exception.h"
#include <array>
#include <bit>
#include <cerrno>
#include <cfenv>
#include <cfloat>
#include <cinttypes>
#include <climits>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <string_view>
#include <type_traits>
#include <unordered_set>

namespace {

using namespace std::string_literals;
using zel::string;

// Texts on which every operation has to hold: empty, NUL bytes, bytes above 0x7F, around the 16
// bytes that are worked on at a time, and large.
std::vector<string> awkward_texts()
{
    std::vector<string> texts{"", " ", "a,b,,", ",", "Zz@[`{", "\xC4\xE4\xFF\x80,", "<&>\"'\t\n\r"};
    texts.emplace_back("a\0,\xFF\0"s);
    std::mt19937 random(1);
    for (unsigned int const size : {15U, 16U, 17U, 31U, 33U, 200U, 65'536U}) {
        string letters(size, 'q');
        string any(size, '\0');
        for (unsigned int i = 0; i < size; ++i) {
            letters[i] = "aB, \t<&z\xE9"[random() % 9];
            any[i] = static_cast<char>(random());
        }
        texts.push_back(letters);
        texts.push_back(any);
    }
    return texts;
}

string joined(std::vector<string> const & pieces)
{
    string text;
    for (auto const & piece : pieces) {
        text += piece + "|";
    }
    return text;
}

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
    std::map<string, int> const numbers{{"one", 1}, {"two", 2}};
    std::unordered_set<string> const set{"a", "b"};
    EXPECT_TRUE(numbers.at("two") == 2 && set.contains("b"));
    std::stringstream stream("word next");
    stream >> s;
    stream.str("");
    stream << s;
    EXPECT_EQ(stream.str(), "word");
    std::string standard = s;
    s = standard.substr(1);
    EXPECT_EQ(s, "ord");
    s.clear();
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
        [&] { s.format(null); }, [&] { list(""); }, [&] { string::validate_ptr(null); },
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

TEST(string, gives_parts)
{
    string const s("abcdef");
    expect_equal({
        {s.left(0), ""}, {s.left(2), "ab"}, {s.left(UINT_MAX), "abcdef"}, {s.right(0), ""},
        {s.right(2), "ef"}, {s.right(6), "abcdef"}, {s.mid(1, 3), "bc"}, {s.mid(2, 100), "cdef"},
        {s.mid(3, 1), "def"}, {s.mid(3, 3), ""}, {s.mid(6, 7), ""},
    });
    EXPECT_THROW(s.right(7), std::out_of_range);
    EXPECT_THROW(s.mid(7, 9), std::out_of_range);
    EXPECT_THROW(string(s, 7, 1), std::out_of_range);
}

TEST(string, replaces_a_range)
{
    string const with("12345");
    auto const replaced = [](auto &&... arguments) {
        string s("abcdef");
        EXPECT_EQ(&s.replace(arguments...), &s);
        return s;
    };
    expect_equal({
        {replaced(1U, 2U, with), "a12345def"}, {replaced(1U, 2U, with, 3U, 1U), "a4def"},
        {replaced(1U, 2U, 3U, 'x'), "axxxdef"}, {replaced(1U, 200U, "x"), "ax"},
        {replaced(1U, 2U, "xyz", 2U), "axydef"},
    });
    string s("abcdef");
    s.replace(s.cbegin() + 1, s.cbegin() + 3, with);
    s.replace(s.cbegin(), s.cbegin() + 1, 2, 'x');
    s.replace(s.cend() - 1, s.cend(), with.cbegin(), with.cbegin() + 2);
    s.replace(s.cbegin(), s.cbegin() + 1, "<>");
    s.replace(s.cend(), s.cend(), "!?", 1);
    EXPECT_EQ(s, "<>x12345de12!");
    EXPECT_THROW(replaced(7U, 0U, "x"), std::out_of_range);
}

TEST(string_hash, has_its_known_values)
{
    struct { char const * text; std::uint32_t count, hash; } const rows[] = {
        {"", 0, 0}, {"", UINT_MAX, 0}, {"a", UINT_MAX, 0xCA2E9442}, {"abc", 3, 0xED131F5B},
        {"abcdef", 3, 0xED131F5B}, {"abc", 4, 0xED131F5B}, {"\xFF", 1, 0xAE65A494},
    };
    for (auto const & row : rows) {
        EXPECT_EQ(string(row.text).hash(row.count), row.hash) << row.text;
    }
    string const s("abcdefghijklmnopqrstuvwxyz");
    expect_equal({{s.truncate_hash(12), "abcdB9F5ED0A"}, {s.truncate_hash(9), "aB9F5ED0A"},
                  {s.truncate_hash(8), s}, {s.truncate_hash(26), s}, {s.truncate_hash(0), s}});
}

TEST(string_operations, agree_with_a_plain_loop_on_any_text)
{
    std::map<char, string> const escapes{{'\t', "#x9;"}, {'\n', "#xa"}, {'\r', "#xd"},
        {'"', "&quot;"}, {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}};
    for (auto const & text : awkward_texts()) {
        SCOPED_TRACE(text.left(20) + " of " + std::to_string(text.size()));
        string lower, upper, escaped, without;
        for (char const c : string(text.c_str())) {
            lower += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
            upper += c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
        }
        std::uint32_t hash = 0;
        for (char const c : text) {
            auto const escape = escapes.find(c);
            escaped += escape == escapes.end() ? string(1, c) : escape->second;
            without += c == ',' || c == '\xFF' ? string() : string(1, c);
            hash = (hash + static_cast<std::uint32_t>(static_cast<int>(c))) * 1025;
            hash ^= hash >> 6;
        }
        hash *= 9;
        EXPECT_EQ(text.hash(UINT_MAX), (hash ^ hash >> 11) * 32769);
        string lowered = text, raised = text, removed = text;
        lowered.to_lower();
        raised.to_upper();
        removed.remove(",\xFF\0a"s); // the set ends at its NUL
        expect_equal({{lowered, lower}, {raised, upper}, {removed, without},
                      {text.normalize_for_xml(), escaped}});

        for (string const & separator : {string(","), string(", "), string("\0"s), string("")}) {
            auto const pieces = text.split(separator);
            string rebuilt;
            for (std::size_t i = 0; i < pieces.size(); ++i) {
                EXPECT_TRUE(separator.empty() || pieces[i].find(separator) == string::npos);
                rebuilt += i == 0 ? pieces[i] : separator + pieces[i];
            }
            EXPECT_EQ(rebuilt, text);
            EXPECT_EQ(text.split(separator, true).size(),
                      pieces.size() - (pieces.back().empty() ? 1 : 0));
            for (char const * const to : {"", "#", "##", "<separator>"}) {
                string expected;
                for (std::size_t i = 0; i < pieces.size(); ++i) {
                    expected += i == 0 ? pieces[i] : to + pieces[i];
                }
                string changed = text;
                EXPECT_EQ(&changed.replace(separator, to), &changed);
                EXPECT_EQ(changed, expected);
            }
        }
    }
}

TEST(string_operations, trim_both_ends)
{
    struct { string text; char const * set, * left, * right, * both; } const rows[] = {
        {"", " ", "", "", ""}, {" ", " ", "", "", ""}, {"   ", " \t\n\r", "", "", ""},
        {"a  ", " ", "a  ", "a", "a"}, {" \t a b\r\n", " \t\n\r", "a b\r\n", " \t a b", "a b"},
        {"xyx", "", "xyx", "xyx", "xyx"}, {"\xFF\xFE!\xFF", "\xFE\xFF", "!\xFF", "\xFF\xFE!", "!"},
    };
    for (auto const & row : rows) {
        string left = row.text, right = row.text, both = row.text;
        left.trim_left(row.set);
        right.trim_right(row.set);
        both.trim(row.set);
        expect_equal({{left, row.left}, {right, row.right}, {both, row.both}});
    }
    string blank(" \t\n\ra\v \r"), nul("\0a\0"s), own("aba");
    blank.trim();
    nul.trim("a"); // a NUL is never in the set
    own.trim(own.c_str() + 2);
    expect_equal({{blank, "a\v"}, {nul, "\0a\0"s}, {own, "b"}});
}

TEST(string_operations, cut_and_find)
{
    // Words between blanks, fields between commas.
    struct { string text; int index; char const * word, * field; } const rows[] = {
        {"a  b c", 0, "a", "a  b c"}, {"a  b c", 1, "b", ""}, {"a  b c", 2, "c", ""},
        {"a  b c", 3, "", ""}, {"a  b c", -1, "", ""}, {"  a", 0, "a", "  a"}, {"a ", 1, "", ""},
        {"", 0, "", ""}, {"a,,b", 0, "a,,b", "a"}, {"a,,b", 1, "", ""}, {"a,,b", 2, "", "b"},
        {"a,,b", 3, "", ""}, {"a b,c\0 d,e"s, 1, "b,c", "c"}, {"a b,c\0 d,e"s, 2, "", ""},
    };
    for (auto const & row : rows) {
        auto const field = static_cast<std::uint32_t>(row.index);
        expect_equal({{row.text.word(row.index, " "), row.word},
                      {row.text.extract_sub_string(field, ','), row.field}});
    }
    string s("aaa"), hello("hello"), c("abcab");
    expect_equal({
        {string("\0 a"s).word(0, "\0 "s), ""}, {string("one(two)").word(1), "two"},
        {string("ab").extract_sub_string(0, '\0'), "ab"},
        {string("ab").extract_sub_string(1, '\0'), ""},
        {joined(string("a,b,").split(",")), "a|b||"}, {joined(string().split(",")), "|"},
        {joined(string("a,b,").split(",", true)), "a|b|"}, {joined(string().split(",", true)), ""},
        {joined(string(",a").split(",", true)), "|a|"}, {joined(string("aaa").split("aa")), "|a|"},
        {joined(string("ab").split("")), "ab|"},
        {s.replace("aa", "b"), "ba"}, {s.replace("", "x"), "ba"}, {s.replace(s, s), "ba"},
        {s.replace("a", s), "bba"}, {s.replace(s, "z"), "z"},
    });
    EXPECT_TRUE(hello.find_one_of("ol") == 2 && hello.find_one_of("\xFF") == -1
                && hello.find_one_of("") == -1 && hello.find_one_of("\0l"s) == -1
                && string("he\0l"s).find_one_of("l") == -1);
    c.remove("ab");
    c.load_string(1);
    EXPECT_EQ(c, "c");
}
// clang-format on

// For formats that the compiler does not see; one without any argument it takes for an oversight.
constexpr int unused = 0;

TEST(string_format, replaces_the_text_unless_the_result_is_empty)
{
    string s("old");
    EXPECT_EQ(s.format("%d", 5), "5");
    s = "old";
    std::string const empty;
    EXPECT_EQ(s.format(empty.c_str(), unused), "old");
    EXPECT_EQ(s.format("%s", ""), "old");
    EXPECT_EQ(s.format("<%s %s>", s.c_str(), s.c_str() + 1), "<old ld>");
    s = "%d-%d";
    EXPECT_EQ(s.format(s.c_str(), 1, 2), "1-2");
    std::string const positional = "%1$s"; // goes to the runtime
    for (unsigned int const size : {0U, 1U, 127U, 128U, 129U, 1023U, 1024U, 1025U, 65'536U}) {
        SCOPED_TRACE(size);
        string const text(size, 'x');
        string const whole = size == 0 ? string("old") : text;
        s = "%s";
        expect_equal({{string("old").format("%s", text.c_str()), whole},
                      {string("old").format(text.c_str(), unused), whole},
                      {string("old").format(positional.c_str(), text.c_str()), whole},
                      {s.format(s.c_str(), whole.c_str()), whole},
                      {s.format("<%s>", s.c_str()), "<" + whole + ">"}});
        EXPECT_EQ(s.format("%*d|", static_cast<int>(size), 7).size(), size > 0 ? size + 1 : 2);
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

// Every conversion with every kind of argument behind it, so that one read wrongly shows.
void expect_equal_to_the_runtime(char const * format, ...)
{
    std::va_list first;
    va_start(first, format);
    std::va_list second;
    va_copy(second, first);
    std::string expected(70'000, '\0');
    int const size = std::vsnprintf(expected.data(), expected.size(), format, first);
    expected.resize(static_cast<std::size_t>(size));
    if (expected.empty()) {
        expected = "old";
    }
    string s("old");
    s.format_v(format, second);
    EXPECT_EQ(s, expected) << format;
    va_end(second);
    va_end(first);
}

TEST(string_format, equals_the_runtime_byte_for_byte)
{
    std::mt19937_64 random(3);
    auto const pick = [&](auto const & list) { return list[random() % std::size(list)]; };
    char const * const lengths[] = {"hh", "h", "", "l", "ll", "j", "z", "t"};
    double const numbers[]
        = {0,      -0.0, 1,     0.1,     100,          123456,  1234565,  999999.5,  1e-5,
           0.0001, 9.5,  1e300, DBL_MIN, DBL_TRUE_MIN, DBL_MAX, HUGE_VAL, -HUGE_VAL, NAN};
    for (int i = 0; i < 60'000; ++i) {
        std::string format = i % 3 == 0 ? "" : "a literal, 100%% ";
        format += '%';
        for (auto flags = random() % 3; flags > 0; --flags) {
            format += "-+ #0"[random() % 5];
        }
        if (random() % 2 == 0) {
            format += std::to_string(random() % (random() % 50 == 0 ? 2000 : 30));
        }
        if (random() % 2 == 0) {
            format += '.';
            format += random() % 4 == 0
                ? ""
                : std::to_string(random() % (random() % 50 == 0 ? 1500 : 25));
        }
        std::uint64_t const bits = random() >> random() % 64;
        auto const value = random() % 8 == 0 ? 0 : random() % 2 == 0 ? bits : 0 - bits;
        double const number = random() % 3 == 0 ? pick(numbers)
            : random() % 2 == 0                 ? std::bit_cast<double>(random())
                                : static_cast<double>(static_cast<std::int64_t>(random() >> 40))
                / pick(std::to_array({1.0, 2.0, 8.0, 10.0, 1000.0, 1e7}));
        switch (random() % 6) {
        case 0:
        case 1:
            format += pick(lengths);
            format += "diuxXo"[random() % 6];
            format += "|%s|%g";
            expect_equal_to_the_runtime(format.c_str(), value, "next", 2.5);
            break;
        case 2:
            format += 's';
            format += "|%d|%c";
            expect_equal_to_the_runtime(
                format.c_str(),
                pick(std::to_array<char const *>({"", "text", "\xE4\xFF", nullptr})), 7, 'x');
            break;
        case 3:
            format += random() % 2 == 0 ? "c%lld|%p" : "p%lld|%p";
            expect_equal_to_the_runtime(format.c_str(), 'A' + value % 26, -1LL, nullptr);
            break;
        default:
            format += random() % 4 == 0 ? "l" : "";
            format += "gggeEfFGaA"[random() % 10];
            format += "|%hhd|%Lg";
            expect_equal_to_the_runtime(format.c_str(), number, 300, 1.5L);
        }
    }
    expect_equal_to_the_runtime("%2$s %1$d", 1, "two");
    expect_equal_to_the_runtime("%*d|%-*d|%.*d|%.*s", -5, 1, 5, 2, -1, 3, 2, "abc");
    expect_equal_to_the_runtime("%ls|%lc|%S", L"wide", L'w', L"old");
    expect_equal_to_the_runtime("%y %5% %'d %qd", 1, 2LL);
    for (int const rounding : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
        std::fesetround(rounding);
        expect_equal_to_the_runtime("%g %.2f %.0f", 0.1234567, 2.675, 0.5);
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
    EXPECT_EQ(string().format("%g", 1.5), "1,5");
    expect_equal_to_the_runtime("%g %f %.3e", 1.5, 2.5, 3.5);
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
