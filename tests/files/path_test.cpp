// SPDX-License-Identifier: MIT
#include "zel/files/native_path.h"
#include "zel/files/path.h"

#include "tests/support/locale_for_a_test.h"
#include "tests/support/property.h"
#include "tests/support/scratch_folder.h"
#include <cstdlib>
#include <gtest/gtest.h>
#include <sstream>
#include <unordered_set>

extern "C" property path_property;

namespace {

namespace fs = std::filesystem;
using zel::path;

TEST(path, has_the_text_that_a_plain_reading_gives)
{
    expect_for_any(path_property, 30'000, [](auto & random) {
        std::string const text
            = any_words(random, 8, {"C:\\", "x", "\\", "/", "..\\", ".\\", "a\\", "Bb", ":"});
        if (random() % 2 == 0) {
            return text + "\n" + any_words(random, 8, {"c:\\", "X", "\\", "A\\", "bB"});
        }
        // A long one beside itself with one byte changed, in its case, in one bit or altogether.
        std::string const one = text + std::string(random() % 262, 's');
        std::string other = one + "s";
        char & byte = other[random() % other.size()];
        int const flipped = byte ^ 1 << random() % 6;
        byte = static_cast<char>(random() % 3 == 0 ? static_cast<int>(random() % 256) : flipped);
        return one + "\n" + other.substr(0, one.size());
    });
    path const root("", "");
    path const copy(root);
    path self("x/y");
    self = static_cast<path const &>(self);
    self = self.c_str() + 1;
    EXPECT_STREQ(self.c_str(), ".\\y");
    self = root;
    EXPECT_STREQ(root.c_str(), "\\");
    EXPECT_TRUE(copy == ".\\" && self == ".\\") << "a copy is normalised";
    EXPECT_TRUE(path(static_cast<char const *>(nullptr)).empty());
}

TEST(path, takes_no_text_that_it_can_not_hold)
{
    std::string const longest = "a b" + std::string(256, 'x'), more(260, 'x');
    path full(longest);
    EXPECT_TRUE(full.add_back_slash() == nullptr && !full.append("y") && !full.add_extension("y")
                && !full.rename_extension(".y") && full.canonicalize());
    full.quote_spaces();
    EXPECT_STREQ(full.c_str(), longest.c_str());
    EXPECT_TRUE(full.append("..\\y") && full == "y") << "only the result has to fit";
    path old("old");
    EXPECT_THROW(path(more.c_str()), std::length_error);
    EXPECT_THROW(path("/" + longest.substr(1)), std::length_error) << "the dot";
    EXPECT_THROW(path(zel::string("a\0b", 3)), std::invalid_argument);
    EXPECT_THROW(path("C:", longest.c_str()), std::length_error);
    EXPECT_THROW(old = more.c_str(), std::length_error);
    EXPECT_FALSE(old.append(more.c_str()) || old.append(longest.c_str(), true)
                 || old.relative_path_to(more.c_str(), 16, "C:\\", 16)
                 || old.relative_path_to("C:\\a", 16, "D:\\a", 16)
                 || old.common_prefix(more.c_str(), "a") || old == more.c_str());
    std::stringstream stream("a b/c\n" + more + "\n");
    path back;
    stream >> back >> old;
    EXPECT_TRUE(back == "a b\\c" && stream.fail());
    EXPECT_STREQ(old.c_str(), "old");
    EXPECT_FALSE(old.common_prefix("C:\\a", "D:\\a"));
    EXPECT_TRUE(old.empty()) << "what they have in common";
}

TEST(path, joins_and_walks)
{
    path joined("a"), slashes("a\\\\");
    EXPECT_TRUE(joined.append("/b") && joined.append("..\\c", true) && joined == "a\\c"
                && joined.add_extension(".txt") && joined.add_extension("x"));
    EXPECT_STREQ(joined.c_str(), "a\\c.txtx");
    slashes.strip_final_slash();
    EXPECT_STREQ(slashes.c_str(), "a\\");
    EXPECT_TRUE(path("a\\\\\\b").find_next_component() == ".\\b" && path("a").match_spec("b;A")
                && path("C:\\;a").match_spec(";A") && !path("a").match_spec("b"));
}

TEST(path, changes_the_case_of_letters_by_the_locale_and_compares_without_it)
{
    EXPECT_NE(path("\xC4"), path("\xE4")) << "no letter of ASCII";
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

TEST(path, takes_and_gives_the_types_of_the_standard_library)
{
    fs::path const name = "/tmp/x";
    path from_text = std::string("a/b"), from_name = name;
    EXPECT_EQ(std::string(from_text), "a\\b");
    EXPECT_EQ(zel::string(from_name), "C:\\tmp\\x") << "a name of the host, not a text";
    from_text = name;
    EXPECT_TRUE(from_text == from_name && fs::path(from_name) == name);
    EXPECT_THROW(from_text = std::string("a\0b", 3), std::invalid_argument);
    EXPECT_THROW(from_text = fs::path("a\\b"), std::invalid_argument);
}

TEST(path, maps_to_names_of_the_host)
{
    std::pair<char const *, char const *> const rows[] = {
        // clang-format off
        {"C:\\tmp\\x", "/tmp/x"}, {"c:\\", "/"}, {"a\\b", "a/b"}, {"/a", "./a"}, {"C:x", "/x"}, {"\\\\?\\C:\\x", "/x"},
        {"D:\\x", ""}, {"\\\\server\\share", ""}, {"", ""}, {"a\\..\\b", "b"}, {"..\\a", "../a"}, {"C:\\..\\a", "/a"},
        {".\\c:x", "./c:x"}, {"C:.", "/"},
        // clang-format on
    };
    for (auto const & row : rows) {
        EXPECT_EQ(zel::to_native(path(row.first)), row.second) << row.first;
    }
    EXPECT_EQ(zel::to_native(path("", "")), "/");
    for (char const * name : {"/", "/tmp/x", "a/b", "../a b", "c:x", "/c:/d:"}) {
        EXPECT_EQ(fs::path(zel::to_native(zel::from_native(name))).lexically_normal(), name);
    }
    EXPECT_STREQ(zel::from_native("/tmp/x").c_str(), "C:\\tmp\\x");
    EXPECT_THROW(zel::from_native("a\\b"), std::invalid_argument);
    EXPECT_THROW(zel::from_native(std::string_view("a\0b", 3)), std::invalid_argument);
    EXPECT_THROW(zel::from_native("/" + std::string(257, 'x')), std::length_error);
    EXPECT_EQ(zel::from_native("/" + std::string(256, 'x')).size(), 259U);
}

TEST(path_folders, follow_the_host_and_the_user)
{
    scratch_folder const area;
    std::string const home = area.file("zel home");
    ::setenv("HOME", home.c_str(), 1);
    for (char const * name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME"}) {
        ::unsetenv(name);
    }
    ::setenv("XDG_CACHE_HOME", "relative", 1); // not valid, so it doesn't count
    fs::create_directories(home + "/.config");
    put(home + "/.config/user-dirs.dirs", "# mine\nXDG_PICTURES_DIR=\"$HOME/My Photos\"\n");
    // clang-format off
    std::pair<std::uint32_t, std::string> const rows[] = {
        {path::admin_tools, home + "/.local/bin"}, {path::common_admin_tools, "/usr/sbin"}, {path::app_data, home + "/.config"},
        {path::common_app_data, "/var/lib"}, {path::common_documents, home + "/Public"}, {path::cookies, ""},
        {path::history, home + "/.local/state"}, {path::internet_cache, home + "/.cache"},
        {path::local_app_data, home + "/.local/share"}, {path::my_pictures, home + "/My Photos"},
        {path::personal, home + "/Documents"}, {path::program_files, "/opt"}, {path::program_files_common, "/usr/share"},
        {path::system, "/usr/lib"}, {path::windows, "/usr"}, {40, home}, {40 | 0x8000, home}, {0xFFFFFFFF, ""},
    };
    // clang-format on
    for (auto const & [number, native] : rows) {
        path const folder(static_cast<path::special_folder>(number));
        EXPECT_EQ(zel::to_native(folder), native) << number;
        EXPECT_EQ(folder.is_directory(), !native.empty());
    }
    EXPECT_EQ(zel::to_native(path(path::current_folder)), fs::current_path());
    EXPECT_TRUE(path().empty() && path(static_cast<path::standard>(3)).empty());
    std::string const temporary = path(path::temporary_folder).c_str();
    EXPECT_TRUE(temporary.ends_with('\\') && path(temporary).is_directory());
}

} // namespace
