// SPDX-License-Identifier: MIT
#include "zel/platform/paths/canonical_path.h"
#include "zel/platform/paths/max_path.h"
#include "zel/platform/paths/path_match.h"
#include "zel/platform/paths/path_parts.h"
#include "zel/platform/paths/relative_path.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zel::platform;

template <auto function> std::string change(char const * text)
{
    char changed[max_path];
    std::strcpy(changed, text);
    function(changed);
    return changed;
}

std::string combine(char const * folder, char const * name)
{
    char result[max_path];
    return path_combine(result, folder, name) == nullptr ? "<null>" : result;
}

std::string canonicalize(std::string const & text)
{
    char result[max_path];
    return path_canonicalize(result, text.c_str()) ? result : "<false>";
}

// clang-format off
struct two_texts { char const * text; char const * expected; };
struct three_texts { char const * first; char const * second; char const * expected; };

TEST(shell_path, canonicalize)
{
    two_texts const rows[] = {
        {R"(A:\name_1\.\name_2\.\name_3\..\name_4\..)", R"(A:\name_1\name_2)"}, {R"(A:\a\..\b\.\c)", R"(A:\b\c)"},
        {R"(C:\..)", R"(C:\)"}, {R"(C:\.)", R"(C:\)"}, {R"(C:\a\..\..\..)", R"(C:\)"}, {R"(\..)", R"(\)"}, {R"(C:a\..)", "C:"},
        {R"(\\server\share\..\..\x)", R"(\\server\share\x)"}, {R"(\\?\C:\a\..\..)", R"(\\?\C:\)"}, {R"(\\?\UNC\s\h\..)", R"(\\?\UNC\s\h)"},
        {R"(a\..)", "."}, {R"(..\..\a\..)", R"(..\..)"}, {R"(a\..\..\b)", R"(..\b)"}, {R"(.\a)", "a"}, {".", "."}, {"", ""},
        {R"(.\c:\x)", R"(.\c:\x)"}, // a name must not become a drive
        {R"(a\\b)", R"(a\b)"}, {R"(a\.\)", R"(a\)"}, {R"(a\b\..\)", R"(a\)"}, {R"(a.\b .\...\c)", R"(a.\b .\...\c)"},
        {R"(\\\?\C:a)", R"(\\?\C:a)"}, {R"(\\s\\h\..)", R"(\\s\h)"}, // the share isn't empty
    };
    for (auto const & row : rows) {
        EXPECT_EQ(canonicalize(row.text), row.expected) << row.text;
    }
}

TEST(shell_path, combine)
{
    three_texts const rows[] = {
        {R"(C:)", R"(One\Two)", R"(C:\One\Two)"}, {R"(C:\)", "a", R"(C:\a)"}, {R"(C:\a)", R"(..\.\b)", R"(C:\b)"},
        {R"(C:\a)", R"(D:\b)", R"(D:\b)"}, {R"(C:\a)", R"(\b)", R"(C:\b)"}, {R"(C:\a)", R"(\\s\h\b)", R"(\\s\h\b)"},
        {R"(\\s\h\a)", R"(\b)", R"(\\s\h\b)"}, {R"(C:\a)", "", R"(C:\a)"}, {"", "b", "b"}, {nullptr, nullptr, R"(\)"},
        {R"(..\a)", "b", R"(..\a\b)"}, {"a", R"(..\..\b)", R"(..\b)"}, {"a", R"(b\)", R"(a\b\)"},
    };
    for (auto const & row : rows) {
        EXPECT_EQ(combine(row.first, row.second), row.expected);
    }
    EXPECT_EQ(change<[](char * text) { path_append(text, R"(\name_2)"); }>("name_1"), R"(name_1\name_2)");
}

TEST(shell_path, roots)
{
    struct { char const * text; char const * rest; char const * root; bool is_root; bool relative; std::int32_t drive; } const rows[] = {
        {R"(C:\)", "", R"(C:\)", true, false, 2}, {R"(z:\a\b)", R"(a\b)", R"(z:\)", false, false, 25},
        {"C:", "", "C:", false, false, 2}, {"C:a", "a", "C:", false, false, 2}, {R"(\)", "", R"(\)", true, false, -1},
        {R"(\a)", "a", R"(\)", false, false, -1}, {R"(\\server)", "", R"(\\server)", true, false, -1},
        {R"(\\server\)", "", R"(\\server)", false, false, -1}, {R"(\\s\share)", "", R"(\\s\share)", true, false, -1},
        {R"(\\s\share\a)", "a", R"(\\s\share)", false, false, -1}, {R"(\\?\C:\a)", "a", R"(\\?\C:\)", false, false, 2},
        {R"(\\?\UNC\s\h\a)", "a", R"(\\?\UNC\s\h)", false, false, -1}, {"", nullptr, "", false, true, -1},
        {R"(..\path2)", nullptr, "", false, true, -1}, {"1:\\", nullptr, "", false, true, -1},
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_STREQ(path_skip_root(row.text), row.rest);
        EXPECT_EQ(change<path_strip_to_root>(row.text), row.root);
        EXPECT_EQ(path_is_root(row.text), row.is_root);
        EXPECT_EQ(path_is_relative(row.text), row.relative);
        EXPECT_EQ(path_get_drive_number(row.text), row.drive);
    }
    char text[max_path];
    for (std::int32_t const drive : {25, 26, -1}) {
        EXPECT_STREQ(path_build_root(text, drive), R"(Z:\)");
    }
}

TEST(shell_path, components)
{
    struct { char const * text; char const * name; char const * folder; char const * next; } const rows[] = {
        {R"(c:\path\file)", "file", R"(c:\path)", R"(path\file)"}, {R"(c:\path\)", R"(path\)", R"(c:\path)", R"(path\)"},
        {R"(c:\)", R"(c:\)", R"(c:\)", ""}, {"c:file", "file", "c:", ""}, {"file", "file", "", ""}, {R"(\a)", "a", R"(\)", "a"},
        {R"(\\s\share)", "share", R"(\\s)", R"(s\share)"}, {R"(\\server)", "server", R"(\\server)", "server"},
        {R"(\\s\share\x)", "x", R"(\\s\share)", R"(s\share\x)"}, {R"(a\\\b)", "b", "a", R"(\b)"}, {R"(a\\b)", "b", "a", "b"},
        {"", "", "", nullptr}, {"http://host/x", "//host/x", "", ""},
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_STREQ(path_find_file_name(row.text), row.name);
        EXPECT_EQ(change<path_strip_path>(row.text), row.name);
        EXPECT_STREQ(path_find_next_component(row.text), row.next);
        char text[max_path];
        std::strcpy(text, row.text);
        EXPECT_EQ(path_remove_file_spec(text), std::strcmp(row.text, row.folder) != 0);
        EXPECT_STREQ(text, row.folder);
    }
    EXPECT_TRUE(path_is_file_spec("a.b") && path_is_file_spec("") && !path_is_file_spec("c:x")
                && !path_is_file_spec("a\\b"));
}

TEST(shell_path, extensions)
{
    struct { char const * text; char const * extension; char const * without; char const * renamed; } const rows[] = {
        {"file.txt", ".txt", "file", "file.c"}, {"file", "", "file", "file.c"}, {"a.b.c", ".c", "a.b", "a.b.c"},
        {R"(a.b\c)", "", R"(a.b\c)", R"(a.b\c.c)"}, {"a.b c", "", "a.b c", "a.b c.c"}, {".x", ".x", "", ".c"}, {"a.", ".", "a", "a.c"},
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_STREQ(path_find_extension(row.text), row.extension);
        EXPECT_EQ(change<path_remove_extension>(row.text), row.without);
        EXPECT_EQ(change<[](char * text) { path_rename_extension(text, ".c"); }>(row.text), row.renamed);
    }
}

TEST(shell_path, backslashes_quotes_blanks_and_arguments)
{
    std::pair<std::string (*)(char const *), std::vector<two_texts>> const tables[] = {
        {change<path_add_backslash>, {{"a", "a\\"}, {"a\\", "a\\"}, {"", ""}, {"C:", "C:\\"}}},
        {change<path_remove_backslash>, {{"a\\", "a"}, {"a", "a"}, {"C:\\", "C:\\"}, {"\\", "\\"}, {"a\\\\", "a\\"}, {"", ""}, {R"(\\s\h\)", R"(\\s\h)"}}},
        {change<path_quote_spaces>, {{"a b", R"("a b")"}, {"ab", "ab"}, {"", ""}}},
        {change<path_unquote_spaces>, {{R"("a")", "a"}, {R"("a)", R"("a)"}, {R"(")", R"(")"}, {R"("")", ""}, {"a", "a"}}},
        {change<path_remove_blanks>, {{"  a b ", "a b"}, {"   ", ""}, {"\ta", "\ta"}}},
        {change<path_make_pretty>, {{"C:\\PATH 1", "c:\\path 1"}, {"C:\\Path", "C:\\Path"}, {"123", "123"}}},
    };
    for (auto const & [changed, rows] : tables) {
        for (auto const & row : rows) {
            EXPECT_EQ(changed(row.text), row.expected) << row.text;
        }
    }
    three_texts const arguments[] = {
        {"test.exe  a b", " a b", "test.exe"}, {"test.exe", "", "test.exe"}, {R"("a b.exe" c)", "c", R"("a b.exe")"}, {R"("a b)", "", R"("a b)"},
    };
    for (auto const & row : arguments) {
        EXPECT_STREQ(path_get_args(row.first), row.second);
        EXPECT_EQ(change<path_remove_args>(row.first), row.expected);
    }
}

TEST(shell_path, match_spec_and_urls)
{
    struct { char const * name; char const * spec; bool matches; } const rows[] = {
        {"a.TXT", "?.txt", true}, {"ab.txt", "?.txt", false}, {"a", "*.*", true}, {"a", "*.", false}, {"a.", "*.", true},
        {"windows", "windows.", false}, {"", "*", true}, {"", "", true}, {"a", "", false}, {"a.c", "*.txt; *.c", true}, {"aba", "ab*ba", false},
        {"a c", "a c", true}, {"aaab", "a*a*a*b", true}, {"aaab", "a*a*a*a*b", false}, {"abcabd", "*abd", true}, {"[a]", "[a]", true},
    };
    for (auto const & row : rows) {
        EXPECT_EQ(path_match_spec(row.name, row.spec), row.matches) << row.name << ", " << row.spec;
    }
    std::pair<char const *, bool> const urls[] = {
        {"http://x", true}, {"mailto:a@b", true}, {"x-y.z+1:", true}, {"c:\\x", false},
        {"1http://x", false}, {"a b://c", false}, {"://x", false}, {"http", false},
    };
    for (auto const & [text, is_url] : urls) {
        EXPECT_EQ(path_is_url(text), is_url) << text;
    }
}

TEST(shell_path, relative_path_and_common_prefix)
{
    constexpr std::int32_t folder = file_attribute_directory;
    struct { char const * from; std::int32_t from_kind; char const * to; std::int32_t to_kind; char const * expected; } const rows[] = {
        {R"(c:\a\b\path)", folder, R"(c:\a\x\y\file)", 0, R"(..\..\x\y\file)"}, {R"(c:\a\b\file)", 0, R"(c:\a\x)", folder, R"(..\x)"},
        {R"(C:\a)", folder, R"(c:\A\b)", 0, R"(.\b)"}, {R"(c:\a\b)", folder, R"(c:\a)", folder, ".."}, {R"(c:\a)", folder, R"(c:\a)", folder, "."},
        {R"(c:\)", folder, R"(c:\x)", 0, R"(.\x)"}, {R"(c:\ab)", folder, R"(c:\a)", folder, R"(..\a)"},
        {R"(\\s\h\a)", folder, R"(\\s\h\b)", folder, R"(..\b)"}, {R"(a\b)", folder, R"(a\c)", 0, R"(..\c)"},
        {R"(a\..\..\b)", folder, R"(..\c)", 0, R"(..\c)"}, {R"(..\..\b)", folder, R"(..\c)", 0, nullptr},
        {R"(\\s\h\a)", folder, R"(\\s\i\a)", folder, nullptr}, {R"(c:\a)", folder, "a", folder, nullptr}, {"a", folder, "b", folder, nullptr},
    };
    for (auto const & row : rows) {
        char way[max_path] = "untouched";
        EXPECT_EQ(path_relative_path_to(way, row.from, row.from_kind, row.to, row.to_kind), row.expected != nullptr);
        EXPECT_STREQ(way, row.expected == nullptr ? "untouched" : row.expected) << row.from << " to " << row.to;
    }
    three_texts const prefixes[] = {
        {R"(C:\win\desktop)", R"(c:\win\tray)", R"(C:\win)"}, {R"(C:\win)", R"(C:\windows)", R"(C:\)"}, {R"(C:\a)", R"(D:\a)", ""},
        {R"(a\b)", R"(a\b)", R"(a\b)"}, {R"(\a)", R"(\b)", ""}, {R"(\\s\h\x)", R"(\\s\h\y)", R"(\\s\h)"}, {R"(\\s\x)", R"(\s\x)", ""},
    };
    for (auto const & row : prefixes) {
        char prefix[max_path];
        EXPECT_EQ(path_common_prefix(row.first, row.second, prefix), static_cast<int>(std::strlen(row.expected)));
        EXPECT_STREQ(prefix, row.expected);
    }
}
// clang-format on

} // namespace
