// SPDX-License-Identifier: MIT
#include "zel/files/native_path.h"
#include "zel/files/path.h"

#include "tests/support/locale_for_a_test.h"
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string>
#include <unordered_set>

namespace {

using zel::path;

TEST(path, normalises_every_text_that_comes_in)
{
    struct {
        char const * text;
        char const * held;
    } const rows[] = {
        // clang-format off
        {"a/b\\c", "a\\b\\c"}, {"/a", ".\\a"}, {"\\a", ".\\a"}, {"/", ".\\"},
        {"//srv/x", "\\\\srv\\x"}, {"\\/x", "\\\\x"}, {"", ""}, {nullptr, ""},
        {"C:/X/../y//", "C:\\X\\..\\y\\\\"},
        // clang-format on
    };
    for (auto const & row : rows) {
        path const made(row.text);
        EXPECT_STREQ(made.c_str(), row.held);
        EXPECT_EQ(made.size(), std::string(row.held).size());
        path assigned("before");
        assigned = row.text;
        EXPECT_STREQ(assigned.c_str(), row.held);
        EXPECT_STREQ(path(zel::string(row.held)).c_str(), row.held) << "twice is once";
        EXPECT_TRUE(made == row.text);
    }
    path self("x/y");
    self = static_cast<path const &>(self);
    self = self.c_str() + 1;
    EXPECT_STREQ(self.c_str(), ".\\y");
}

TEST(path, takes_no_text_that_it_can_not_hold)
{
    std::string const longest(259, 'x');
    std::string const more(260, 'x');
    EXPECT_EQ(path(longest.c_str()).size(), 259U);
    path old("old");
    EXPECT_THROW(path(more.c_str()), std::length_error);
    EXPECT_THROW(path(("/" + longest.substr(1)).c_str()), std::length_error) << "the dot";
    EXPECT_THROW(path(zel::string("a\0b", 3)), std::invalid_argument);
    EXPECT_THROW(path("C:", longest.c_str()), std::length_error);
    EXPECT_THROW(old = more.c_str(), std::length_error);
    EXPECT_FALSE(old.append(more.c_str()) || old.append(longest.c_str(), true)
                 || old.add_extension(longest.c_str())
                 || old.relative_path_to(more.c_str(), 16, "C:\\", 16)
                 || old.relative_path_to("C:\\a", 16, "D:\\a", 16)
                 || old.common_prefix(more.c_str(), "a") || old == more.c_str());
    EXPECT_STREQ(old.c_str(), "old");
    EXPECT_FALSE(old.common_prefix("C:\\a", "D:\\a"));
    EXPECT_TRUE(old.empty()) << "what they have in common";
}

TEST(path, joins_and_walks)
{
    EXPECT_STREQ(path("", "").c_str(), "\\");
    path const root("", "");
    path const copy(root);
    EXPECT_STREQ(copy.c_str(), ".\\") << "a copy is normalised";
    path joined("a");
    EXPECT_TRUE(joined.append("/b") && joined.append("..\\c", true));
    EXPECT_STREQ(joined.c_str(), "a\\c");
    EXPECT_TRUE(joined.add_extension(".txt") && joined.add_extension("x"));
    EXPECT_STREQ(joined.c_str(), "a\\c.txtx");
    EXPECT_STREQ(path("C:\\x").find_first_component().c_str(), "C:\\");
    EXPECT_STREQ(path("a\\").find_first_component().c_str(), "a\\");
    EXPECT_STREQ(path("a\\\\\\b").find_next_component().c_str(), ".\\b");
    EXPECT_TRUE(path("a").find_next_component().empty() && path().find_first_component().empty());
    path slashes("a\\\\");
    slashes.strip_final_slash();
    EXPECT_STREQ(slashes.c_str(), "a\\");
    EXPECT_TRUE(path("c:\\d\\a.TXT").match_spec("*.txt")
                && path("c:\\d\\;a.txt").match_spec(";A.txt") && !path("a.txt").match_spec("*.c"));

    // Walking the components and joining them gives the canonical path back.
    char const * const pieces[] = {"\\", "..\\", ".\\", "a\\", "bb", "C:\\"};
    std::mt19937 random(3);
    for (int round = 0; round < 2000; ++round) {
        std::string text = round % 2 == 0 ? "C:\\" : "x";
        for (auto count = random() % 8; count > 0; --count) {
            // Behind two that stand together a third begins a path of its own, `.\`.
            text += pieces[text.ends_with("\\\\") ? 2 + random() % 3 : random() % 5];
        }
        path canonical(text.c_str());
        ASSERT_TRUE(canonical.canonicalize());
        path built;
        for (path rest(text.c_str()); !rest.empty(); rest = rest.find_next_component()) {
            path const first = rest.find_first_component();
            built.append(first.c_str());
        }
        built.canonicalize();
        built.remove_back_slash();
        canonical.remove_back_slash();
        EXPECT_EQ(built, canonical) << text;
    }
}

TEST(path, compares_hashes_and_sorts_without_case)
{
    EXPECT_TRUE(path("C:\\X") == "c:/x" && path("a") == path("A") && path("a") != path("ab")
                && path("a") != "b");
    EXPECT_TRUE((path("a") <=> path("B")) < 0 && path("Z") > path("_"));
    EXPECT_NE(path("\xC4"), path("\xE4")) << "no letter of ASCII";
    std::string const longest(259, 's');
    for (std::size_t i = 0; i < longest.size(); ++i) {
        path other(longest.c_str());
        std::string text = longest;
        text[i] = 'S';
        ASSERT_EQ(other, path(text.c_str())) << i;
        text[i] = 't';
        ASSERT_NE(other, path(text.c_str())) << i;
        other = longest.c_str() + i; // what stood behind the end before doesn't count
        ASSERT_EQ(other, path(longest.c_str() + i));
    }
    std::unordered_set<path> const set{path("A\\b"), path("a/B"), path("c")};
    EXPECT_EQ(set.size(), 2U);
    for (bool const german : {false, true}) {
        locale_for_a_test const locale(german ? "de_DE.ISO-8859-1" : "C");
        path cases("a\xE4Z");
        cases.to_upper();
        EXPECT_STREQ(cases.c_str(), german ? "A\xC4Z" : "A\xE4Z");
        cases.to_lower();
        EXPECT_STREQ(cases.c_str(), "a\xE4z");
    }
}

TEST(path, goes_through_streams)
{
    std::stringstream stream;
    stream << path("a b/c") << '\n' << std::string(300, 'x') << '\n';
    path back("old");
    stream >> back;
    EXPECT_STREQ(back.c_str(), "a b\\c");
    stream >> back;
    EXPECT_TRUE(stream.fail());
    EXPECT_STREQ(back.c_str(), "a b\\c");
}

TEST(path, takes_and_gives_the_types_of_the_standard_library)
{
    std::string const text = "a/b";
    std::filesystem::path const name = "/tmp/x";
    path from_text = text;
    path from_name = name;
    EXPECT_EQ(std::string(from_text), "a\\b");
    EXPECT_EQ(zel::string(from_name), "C:\\tmp\\x") << "a name of the host, not a text";
    from_text = std::string("c");
    EXPECT_TRUE(from_text == text.substr(0, 0) + "C");
    from_text = name;
    EXPECT_EQ(from_text, from_name);
    std::filesystem::path const back = from_name;
    EXPECT_EQ(back, name);
    EXPECT_TRUE(std::filesystem::exists(path("C:\\tmp")) && from_name == std::string("c:/tmp/X"));
    EXPECT_THROW(from_text = std::string("a\0b", 3), std::invalid_argument);
    EXPECT_THROW(from_text = std::filesystem::path("a\\b"), std::invalid_argument);
}

TEST(path, maps_to_names_of_the_host)
{
    struct {
        char const * text;
        char const * native;
    } const rows[] = {
        // clang-format off
        {"C:\\tmp\\x", "/tmp/x"}, {"c:\\", "/"}, {"a\\b", "a/b"}, {"/a", "./a"}, {"C:x", "/x"},
        {"\\\\?\\C:\\x", "/x"}, {"D:\\x", ""}, {"\\\\server\\share", ""}, {"", ""},
        {"a\\..\\b", "b"}, {"..\\a", "../a"}, {"C:\\..\\a", "/a"}, {".\\c:x", "./c:x"},
        // clang-format on
    };
    for (auto const & row : rows) {
        EXPECT_EQ(zel::to_native(path(row.text)), row.native) << row.text;
    }
    EXPECT_EQ(zel::to_native(path("", "")), "/");
    for (char const * name : {"/", "/tmp/x", "a/b", "../a b", "c:x", "/c:/d:"}) {
        EXPECT_EQ(std::filesystem::path(zel::to_native(zel::from_native(name))).lexically_normal(),
                  name);
    }
    EXPECT_STREQ(zel::from_native("/tmp/x").c_str(), "C:\\tmp\\x");
    EXPECT_THROW(zel::from_native("a\\b"), std::invalid_argument);
    EXPECT_THROW(zel::from_native(std::string_view("a\0b", 3)), std::invalid_argument);
    EXPECT_THROW(zel::from_native("/" + std::string(257, 'x')), std::length_error);
    EXPECT_EQ(zel::from_native("/" + std::string(256, 'x')).size(), 259U);
}

TEST(path_folders, follow_the_host_and_the_user)
{
    std::string const home = std::filesystem::temp_directory_path() / "zel home";
    std::filesystem::remove_all(home);
    ::setenv("HOME", home.c_str(), 1);
    for (char const * name :
         {"XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME"}) {
        ::unsetenv(name);
    }
    ::setenv("XDG_CACHE_HOME", "relative", 1); // not valid, so it doesn't count
    std::filesystem::create_directories(home + "/.config");
    FILE * const list = std::fopen((home + "/.config/user-dirs.dirs").c_str(), "w");
    std::fputs("# choices\nXDG_PICTURES_DIR=\"$HOME/My Photos\"\n", list);
    std::fclose(list);
    struct {
        std::uint32_t folder;
        std::string native;
    } const rows[] = {
        // clang-format off
        {path::admin_tools, home + "/.local/bin"}, {path::common_admin_tools, "/usr/sbin"},
        {path::app_data, home + "/.config"}, {path::common_app_data, "/var/lib"},
        {path::common_documents, home + "/Public"}, {path::cookies, ""},
        {path::history, home + "/.local/state"}, {path::internet_cache, home + "/.cache"},
        {path::local_app_data, home + "/.local/share"},
        {path::my_pictures, home + "/My Photos"}, {path::personal, home + "/Documents"},
        {path::program_files, "/opt"}, {path::program_files_common, "/usr/share"},
        {path::system, "/usr/lib"}, {path::windows, "/usr"}, {40, home}, {40 | 0x8000, home},
        {0xFFFFFFFF, ""},
        // clang-format on
    };
    for (auto const & row : rows) {
        path const folder(static_cast<path::special_folder>(row.folder));
        EXPECT_EQ(zel::to_native(folder), row.native) << row.folder;
        EXPECT_EQ(folder.is_directory(), !row.native.empty());
    }
    EXPECT_EQ(zel::to_native(path(path::current_folder)), std::filesystem::current_path());
    EXPECT_TRUE(path().empty() && path(static_cast<path::standard>(3)).empty());
    std::string const temporary = path(path::temporary_folder).c_str();
    EXPECT_TRUE(temporary.ends_with('\\') && path(temporary.c_str()).is_directory());
    std::filesystem::remove_all(home);
}

} // namespace
