// SPDX-License-Identifier: MIT
#include "zel/platform/paths/canonical_path.h"
#include "zel/platform/paths/max_path.h"
#include "zel/platform/paths/path_match.h"
#include "zel/platform/paths/path_parts.h"
#include "zel/platform/paths/relative_path.h"

#include "tests/support/property.h"
#include <gtest/gtest.h>
#include <string>

extern "C" property shell_path_property;

namespace {

using namespace zel::platform;

struct two_texts {
    char const * text;
    char const * expected;
};
struct three_texts {
    char const * first;
    char const * second;
    char const * expected;
};

// clang-format off
TEST(shell_path, canonicalize_and_combine)
{
    char result[max_path];
    two_texts const rows[] = {
        {R"(A:\name_1\.\name_2\.\name_3\..\name_4\..)", R"(A:\name_1\name_2)"}, {R"(C:\..)", R"(C:\)"}, {R"(C:a\..)", "C:"},
        {R"(\\server\share\..\..\x)", R"(\\server\share\x)"}, {R"(\\?\UNC\s\h\..)", R"(\\?\UNC\s\h)"},
        {R"(a\..)", "."}, {R"(..\..\a\..)", R"(..\..)"}, {R"(a\b\..\)", R"(a\)"}, {R"(a.\b .\...\c)", R"(a.\b .\...\c)"}, {"", ""},
        {R"(.\c:\x)", R"(.\c:\x)"}, // a name must not become a drive
        {R"(\\s\\h\..)", R"(\\s\h)"}, // the share isn't empty
    };
    for (auto const & row : rows) {
        EXPECT_TRUE(path_canonicalize(result, row.text));
        EXPECT_STREQ(result, row.expected) << row.text;
    }
    three_texts const pairs[] = {
        {R"(C:)", R"(One\Two)", R"(C:\One\Two)"}, {R"(C:\a)", R"(..\.\b)", R"(C:\b)"}, {R"(C:\a)", R"(D:\b)", R"(D:\b)"},
        {R"(\\s\h\a)", R"(\b)", R"(\\s\h\b)"}, {R"(C:\a)", "", R"(C:\a)"}, {nullptr, nullptr, R"(\)"},
    };
    for (auto const & row : pairs) {
        EXPECT_STREQ(path_combine(result, row.first, row.second), row.expected);
    }
}

TEST(shell_path, relative_path_and_common_prefix)
{
    constexpr std::int32_t folder = file_attribute_directory;
    char result[max_path];
    three_texts const ways[] = {
        {R"(c:\a\b\path)", R"(c:\a\x\y\file)", R"(..\..\x\y\file)"}, {R"(C:\a)", R"(c:\A\b)", R"(.\b)"}, {R"(c:\a)", R"(c:\a)", "."},
        {R"(a\..\..\b)", R"(..\c)", R"(..\c)"},
    };
    for (auto const & row : ways) {
        EXPECT_TRUE(path_relative_path_to(result, row.first, folder, row.second, folder));
        EXPECT_STREQ(result, row.expected);
    }
    EXPECT_FALSE(path_relative_path_to(result, R"(..\..\b)", folder, R"(..\c)", 0));
    EXPECT_EQ(path_common_prefix(R"(C:\win)", R"(c:\windows)", result), 3);
    EXPECT_STREQ(result, R"(C:\)");
}

TEST(shell_path, match_spec_and_urls)
{
    EXPECT_TRUE(path_match_spec("a.c", "*.txt; *.C") && path_match_spec("a", "*.*") && !path_match_spec("ab", "?"));
    EXPECT_TRUE(path_is_url("http://x") && path_is_url("x-y.z+1:") && !path_is_url("c:\\x"));
}
// clang-format on

TEST(shell_path, is_what_a_plain_model_of_it_says)
{
    std::string const longer(120, 'x');
    expect_for_any(shell_path_property, 6000, [&](auto & random) {
        auto const piece = [&](std::size_t most) {
            return any_words(random, most,
                             {"C:", "c:",      "\\",   "\\", "\\", "..\\", ".\\", "..", ".",
                              "a",  "b",       "A",    "?",  "*",  " ",    "\"",  ";",  "UNC\\",
                              "s",  "\\\\?\\", "\\\\", ":",  "/",  "x.y",  "\t",  "1",  longer});
        };
        if (random() % 4 == 0) { // names and patterns
            return any_words(random, 4, {"a", "b", "."}) + "\n"
                + any_words(random, 6, {"a", "B", ".", "*", "?", "; "});
        }
        std::string const front = piece(5);
        return front + piece(4) + "\n" + (random() % 2 == 0 ? front : "") + piece(5);
    });
}

} // namespace
