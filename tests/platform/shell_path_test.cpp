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

TEST(shell_path, gives_what_its_documentation_shows)
{
    char text[max_path];
    EXPECT_TRUE(path_canonicalize(text, R"(A:\name_1\.\name_2\.\name_3\..\name_4\..)"));
    EXPECT_STREQ(text, R"(A:\name_1\name_2)");
    EXPECT_STREQ(path_combine(text, "C:", R"(One\Two)"), R"(C:\One\Two)");
    EXPECT_STREQ(path_combine(text, nullptr, nullptr), "\\");
    constexpr std::int32_t folder = file_attribute_directory;
    EXPECT_TRUE(path_relative_path_to(text, R"(c:\a\b\path)", folder, R"(c:\a\x\y\file)", folder));
    EXPECT_STREQ(text, R"(..\..\x\y\file)");
    EXPECT_EQ(path_common_prefix(R"(C:\win)", R"(c:\windows)", text), 3);
    EXPECT_STREQ(text, R"(C:\)");
    EXPECT_TRUE(path_match_spec("a.c", "*.txt; *.C") && path_is_url("http://x"));
}

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
