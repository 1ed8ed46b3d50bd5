// SPDX-License-Identifier: MIT
#include "zel/files/path.h"

#include "scratch.h"
#include <set>
#include <tuple>

namespace {

namespace fs = std::filesystem;
using zel::path;

std::multiset<std::string> names(path folder, char const * spec = "*.*")
{
    std::list<zel::auto_ptr<path>> entries;
    folder.get_entries(entries, spec);
    std::multiset<std::string> result;
    for (auto const & entry : entries) {
        result.insert(entry->find_filename());
    }
    return result;
}

using name_set = std::multiset<std::string>;

TEST(path_create, makes_what_is_missing_of_a_chain)
{
    scratch const area;
    area.write("file", "x");
    EXPECT_TRUE(area.path("a/b/c").create());
    EXPECT_TRUE(area.path("a/b/d").create());
    EXPECT_TRUE(area.path("a/b").create());
    EXPECT_TRUE(area.path("c:x/y").create()) << "a name, and no drive";
    EXPECT_TRUE(fs::is_directory(area.host("a/b/d")) && fs::is_directory(area.host("c:x/y")));
    EXPECT_FALSE(area.path("file/x").create());
    EXPECT_FALSE(area.path("file").create());
    EXPECT_FALSE(path("D:\\x").create());
    EXPECT_FALSE(path("\\\\server\\share\\x").create());
    EXPECT_TRUE(path("").create());
}

TEST(path_create, keeps_a_relative_path_relative)
{
    scratch const area;
    EXPECT_EQ(in_child([&] {
                  bool const done = area.path("").set_current() && path("/a/b").create()
                      && path("c").create() && path("a\\..\\d\\e").create();
                  area.write("source", "x");
                  path source("source");
                  bool const moved = source.copy(path("/f/g")) && source.rename(path("/h/i"));
                  return done && moved && source == ".\\h\\i" ? 0 : 1;
              }),
              0);
    EXPECT_EQ(names(area.path("")), (name_set{"a", "c", "d", "f", "h"}));
    EXPECT_EQ(area.read("f/g") + area.read("h/i"), "xx");
}

TEST(path_queries, tell_files_from_folders)
{
    scratch const area;
    area.write("five", "12345");
    area.write("empty", "");
    area.write(".dot", "");
    fs::create_directory(area.host("folder"));
    fs::create_symlink("five", area.host("link"));
    fs::create_symlink("folder", area.host("folder link"));
    fs::create_symlink("nothing", area.host("dangling"));
    fs::permissions(area.host("empty"), fs::perms(0444));
    constexpr unsigned int none = 0xFFFFFFFF;
    struct {
        char const * name;
        std::int32_t attributes;
        unsigned int size;
    } const rows[] = {
        // clang-format off
        {"five", path::attr_normal, 5}, {"empty", path::attr_readonly, 0},
        {".dot", path::attr_hidden, 0}, {"folder", path::attr_directory, none},
        {"link", path::attr_normal, 5}, {"folder link", path::attr_directory, none},
        {"dangling", -1, none}, {"missing", -1, none}, {"folder/../five", path::attr_normal, 5},
        {"five/", -1, none}, {"folder/.", path::attr_directory, none},
        // clang-format on
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(row.name);
        path const tested = area.path(row.name);
        EXPECT_EQ(tested.getAttributes(), row.attributes);
        EXPECT_EQ(tested.file_size(), row.size);
        EXPECT_EQ(tested.file_exists(), row.attributes != -1);
        EXPECT_EQ(tested.is_directory(), row.attributes == path::attr_directory);
    }
    EXPECT_FALSE(path("").file_exists());
    EXPECT_FALSE(path("D:\\").is_directory());
    EXPECT_TRUE(path("C:\\").is_directory());

    // Through a link the host would take `..` for the folder that holds the target.
    fs::create_directories(area.host("far/away"));
    fs::create_symlink("far/away", area.host("near"));
    EXPECT_EQ(area.path("near/../five").file_size(), 5U);

    for (auto const & [size, told] : {std::pair{0xFFFFFFFEULL, 0xFFFFFFFEU},
                                      {0xFFFFFFFFULL, 0xFFFFFFFFU},
                                      {0x100000001ULL, 0xFFFFFFFFU}}) {
        area.write("large", "");
        fs::resize_file(area.host("large"), size);
        EXPECT_EQ(area.path("large").file_size(), told);
    }
}

TEST(path_attributes, map_read_only_to_the_right_to_write)
{
    scratch const area;
    area.write("file", "");
    fs::permissions(area.host("file"), fs::perms(0664));
    path file = area.path("file");
    auto const rights
        = [&] { return static_cast<int>(fs::status(area.host("file")).permissions()); };
    file.setAttributes(path::attr_readonly | path::attr_archive);
    EXPECT_EQ(rights(), 0444);
    EXPECT_EQ(file.getAttributes(), path::attr_readonly);
    file.setAttributes(-1);
    file.setAttributes(path::attr_normal);
    EXPECT_EQ(rights(), 0644);
    EXPECT_EQ(file.getAttributes(), path::attr_normal);
    EXPECT_FALSE(area.path("").make_system_folder());
    EXPECT_TRUE(area.path("").unmake_system_folder());
    EXPECT_FALSE(file.unmake_system_folder());
}

TEST(path_entries, match_the_pattern_and_carry_the_folder)
{
    scratch const area;
    for (char const * name : {"a.txt", "B.TXT", "c", ".hidden", "d e.txt", "x;y", "c:z", "..."}) {
        area.write(name, "");
    }
    fs::create_directory(area.host("sub"));
    fs::create_symlink("nothing", area.host("dangling"));
    std::pair<char const *, name_set> const rows[] = {
        {"*.txt", {"a.txt", "B.TXT", "d e.txt"}},
        {"c", {"c"}},
        {"x;y", {"x;y"}},
        {"*.", {"...", "c", "x;y", "sub", "dangling", "z"}}, // z: of c:z, taken for a drive
        {"?.*", {"...", "a.txt", "B.TXT"}},
        {"nothing*", {}},
        {"", {}},
        {"sub/*", {}},
        {"D:\\*", {}},
    };
    for (auto const & [spec, expected] : rows) {
        EXPECT_EQ(names(area.path(""), spec), expected) << spec;
    }
    EXPECT_EQ(names(area.path("")).size(), 10U);

    // Folders whose own names leave room for two bytes, for one, and for none.
    for (std::size_t const room : {2U, 1U, 0U}) {
        std::string name = "deep/" + std::string(100, 'n');
        name += '/' + std::string(258 - room - area.path(name).size() - 1, 'n');
        area.write(name + "/a", "");
        area.write(name + "/bb", "");
        EXPECT_EQ(area.path(name).size(), 258 - room);
        EXPECT_EQ(names(area.path(name)).size(), room);
    }

    std::list<zel::auto_ptr<path>> entries;
    area.path("").get_entries(entries, "sub");
    area.path("").get_entries(entries, "nothing", false);
    area.path("").get_entries(entries, "a.txt", false);
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(*entries.front(), area.path("sub"));
    EXPECT_EQ(entries.front()->ref_count(), 1U);
    EXPECT_EQ(*entries.back(), area.path("a.txt"));
    area.path("missing").get_entries(entries);
    EXPECT_TRUE(entries.empty());
}

TEST(path_entries, never_lead_elsewhere)
{
    scratch const area;
    area.write("victim", "x");
    area.write("folder/..\\victim", "");
    area.write("folder/good", "");
    std::string const deep(250 - area.path("folder").size(), 'n');
    area.write("folder/" + deep, ""); // one that just fits
    area.write("folder/" + deep + "123456789", ""); // and one that doesn't
    EXPECT_EQ(names(area.path("folder")), (name_set{"good", deep}));
    EXPECT_EQ(in_child([&] {
                  std::list<zel::auto_ptr<path>> entries;
                  area.write("c:tmp", "");
                  path current;
                  area.path("").set_current();
                  current.get_entries(entries, "*tmp");
                  path("", "").get_entries(entries, "proc", false); // of the root
                  return entries.size() == 2 && *entries.front() == ".\\c:tmp"
                          && *entries.back() == "C:\\proc"
                      ? 0
                      : 1;
              }),
              0);
}

TEST(path_rename, moves_and_never_replaces)
{
    scratch const area;
    area.write("file", "x");
    area.write("other", "y");
    area.write("folder/inner", "z");
    fs::create_symlink("nothing", area.host("link"));
    path moved = area.path("file");
    for (char const * taken : {"other", "folder", "link", "file"}) {
        EXPECT_FALSE(moved.rename(area.path(taken))) << taken;
    }
    EXPECT_EQ(moved, area.path("file"));
    EXPECT_TRUE(moved.rename(area.path("new/folder/name")));
    EXPECT_EQ(moved, area.path("new/folder/name"));
    EXPECT_EQ(area.read("new/folder/name") + area.read("other"), "xy");
    path folder = area.path("folder");
    EXPECT_FALSE(folder.rename(area.path("folder/below/itself")));
    EXPECT_TRUE(folder.rename(area.path("moved")));
    EXPECT_EQ(area.read("moved/inner"), "z");
    path link = area.path("link");
    EXPECT_TRUE(link.rename(area.path("link 2")));
    EXPECT_EQ(fs::read_symlink(area.host("link 2")), "nothing");
    EXPECT_FALSE(area.path("missing").rename(area.path("made/x")));
    EXPECT_TRUE(area.exists("made")) << "the target's folder stays";
}

TEST(path_rename, moves_files_and_links_to_another_file_system)
{
    if (!fs::is_directory(fast_place)) {
        GTEST_SKIP() << "no second file system";
    }
    scratch const area;
    scratch const far(fast_place);
    area.write("file", "content");
    fs::permissions(area.host("file"), fs::perms(0640));
    fs::create_symlink("x", area.host("link"));
    area.write("taken", "new");
    far.write("taken", "old");
    fs::create_directory(area.host("folder"));
    EXPECT_TRUE(area.path("file").rename(far.path("file")));
    EXPECT_TRUE(area.path("link").rename(far.path("link")));
    EXPECT_FALSE(area.path("taken").rename(far.path("taken")));
    EXPECT_FALSE(area.path("folder").rename(far.path("folder")) && area.exists("folder"));
    EXPECT_EQ(far.read("file") + far.read("taken"), "contentold");
    EXPECT_EQ(fs::status(far.host("file")).permissions(), fs::perms(0640));
    EXPECT_EQ(fs::read_symlink(far.host("link")), "x");
    EXPECT_EQ(names(far.path("")), (name_set{"file", "link", "taken"}));
    EXPECT_EQ(names(area.path("")), (name_set{"folder", "taken"}));
}

TEST(path_copy, replaces_and_keeps_rights_times_and_links)
{
    scratch const area;
    area.write("source", std::string(100'000, 's'));
    fs::permissions(area.host("source"), fs::perms(0750));
    fs::last_write_time(area.host("source"),
                        fs::file_time_type::clock::now() - std::chrono::hours(50));
    area.write("old", "old");
    fs::create_symlink("old", area.host("link"));
    fs::create_symlink("later/../fresh", area.host("dangling"));
    fs::create_directory(area.host("later"));
    for (char const * target : {"old", "new/place", "link", "dangling"}) {
        SCOPED_TRACE(target);
        EXPECT_TRUE(area.path("source").copy(area.path(target)));
        EXPECT_EQ(area.read(target), area.read("source"));
        EXPECT_EQ(fs::status(area.host(target)).permissions(), fs::perms(0750));
        EXPECT_EQ(fs::last_write_time(area.host(target)), fs::last_write_time(area.host("source")));
    }
    EXPECT_TRUE(fs::is_symlink(area.host("link")) && fs::is_regular_file(area.host("fresh")));
    EXPECT_EQ(names(area.path("")).size(), 7U) << "a working file was left";
}

TEST(path_copy, refuses_what_it_can_not_replace)
{
    scratch const area;
    area.write("source", "s");
    area.write("read-only", "r");
    fs::permissions(area.host("read-only"), fs::perms(0444));
    fs::create_directory(area.host("folder"));
    fs::create_symlink("source", area.host("link"));
    fs::create_symlink("loop", area.host("loop"));
    for (char const * target : {"read-only", "folder", "source", "link", "loop", "source/x"}) {
        EXPECT_FALSE(area.path("source").copy(area.path(target))) << target;
    }
    EXPECT_FALSE(area.path("source").copy(path("C:\\dev\\null")));
    EXPECT_FALSE(area.path("folder").copy(area.path("x")));
    EXPECT_FALSE(area.path("missing").copy(area.path("x")));
    EXPECT_EQ(area.read("source") + area.read("read-only"), "sr");
    EXPECT_FALSE(area.exists("x"));
    // Files that tell a size of 0, or of a page, and hold a text.
    for (char const * told : {"/proc/self/status", "/sys/kernel/profiling"}) {
        fs::remove(area.host("told"));
        EXPECT_EQ(zel::from_native(told).copy(area.path("told")), fs::exists(told));
        EXPECT_FALSE(area.read("told").empty());
        EXPECT_EQ(area.read("told").find('\0'), std::string::npos) << told;
    }
}

TEST(path_copy, keeps_holes)
{
    scratch const area;
    area.write("sparse", "begin");
    fs::resize_file(area.host("sparse"), 0x100000000 + 10);
    std::fstream(area.host("sparse")).seekp(0x40000000) << "middle";
    ASSERT_TRUE(area.path("sparse").copy(area.path("copy")));
    EXPECT_EQ(fs::file_size(area.host("copy")), 0x100000000 + 10);
    std::ifstream in(area.host("copy"));
    std::string word(6, '\0');
    in.seekg(0x40000000).read(word.data(), 6);
    EXPECT_EQ(word, "middle");
    struct ::stat facts;
    ASSERT_EQ(::stat(area.host("copy").c_str(), &facts), 0);
    EXPECT_LT(facts.st_blocks, 1000);
}

TEST(path_temp, creates_a_new_empty_file_each_time)
{
    scratch const area;
    std::set<std::string> made;
    for (int i = 0; i < 200; ++i) {
        path const file = path::get_temp_filename(area.path(""));
        EXPECT_EQ(std::string(file.find_filename()).substr(0, 4), "temp");
        EXPECT_EQ(file.file_size(), 0U);
        made.insert(file.c_str());
    }
    EXPECT_EQ(made.size(), 200U);
    for (path const & none : {area.path("missing"), path(), path(std::string(250, 'x').c_str())}) {
        EXPECT_TRUE(path::get_temp_filename(none).empty());
    }
}

TEST(path_compare_files, compares_content)
{
    scratch const area;
    std::string const content(300'000, 'c');
    area.write("a", content);
    area.write("same", content);
    area.write("longer", content + "c");
    area.write("512", content.substr(0, 512));
    area.write("512 too", content.substr(0, 512));
    area.write("empty", "");
    area.write("empty too", "");
    std::string last = content;
    last.back() = 'd';
    area.write("last differs", last);
    fs::create_directory(area.host("folder"));
    std::tuple<char const *, char const *, bool> const rows[] = {
        {"a", "same", true},          {"a", "a", true},
        {"512", "512 too", true},     {"empty", "empty too", true},
        {"a", "longer", false},       {"longer", "a", false},
        {"a", "last differs", false}, {"missing", "missing", false},
        {"folder", "folder", false},  {"a", "missing", false},
    };
    for (auto const & [first, second, equal] : rows) {
        EXPECT_EQ(path::compare_files(area.path(first), area.path(second)), equal)
            << first << ", " << second;
    }
    EXPECT_FALSE(path::compare_files(path("C:\\dev\\zero"), path("C:\\dev\\zero")));
}

TEST(path_remove, takes_files_links_and_trees)
{
    scratch const area;
    area.write("tree/a/b/c", "");
    area.write("tree/d", "");
    area.write("outside/kept", "");
    area.write("read-only", "");
    fs::permissions(area.host("read-only"), fs::perms(0444));
    fs::create_directory_symlink(area.host("outside"), area.host("tree/a/link"));
    fs::create_directory_symlink(area.host("outside"), area.host("link"));
    fs::create_directory_symlink(area.host("outside"), area.host("link 2"));
    fs::create_symlink("nothing", area.host("dangling"));
    EXPECT_FALSE(area.path("tree/d").empty_folder());
    for (char const * name : {"tree", "link/", "link 2/.", "dangling"}) {
        EXPECT_TRUE(area.path(name).remove()) << name;
    }
    EXPECT_FALSE(area.path("missing").remove());
    EXPECT_FALSE(area.path("read-only").remove());
    EXPECT_FALSE(path("").remove());
    EXPECT_EQ(names(area.path("")), (name_set{"outside", "read-only"}));

    fs::create_directory_symlink(area.host("outside"), area.host("link"));
    EXPECT_TRUE(area.path("link").empty_folder()) << "the folder that the user named";
    EXPECT_EQ(names(area.path("outside")), name_set{});
    area.write("tree/x/read-only", "");
    fs::permissions(area.host("tree/x/read-only"), fs::perms(0444));
    EXPECT_FALSE(area.path("tree").remove());
    EXPECT_TRUE(area.exists("tree/x/read-only"));
}

TEST(path_remove, leaves_what_no_path_can_name)
{
    scratch const outer;
    outer.write("victim", "x");
    outer.write("tree/..\\..\\victim", "");
    outer.write("tree/good", "");
    EXPECT_FALSE(outer.path("tree").remove() || outer.path("tree").empty_folder());
    EXPECT_TRUE(outer.exists("tree/..\\..\\victim") && outer.exists("victim"));
    EXPECT_FALSE(outer.exists("tree/good"));

    // As deep as a path can name, then one deeper.
    for (bool const beyond : {false, true}) {
        scratch const area;
        std::string name = "t";
        while (area.path(name).size() + 2 < 260) {
            name += "/d";
        }
        fs::path host = area.host(name);
        host = beyond ? host / "dd" : host;
        fs::create_directories(host);
        EXPECT_EQ(area.path("t").remove(), !beyond);
        EXPECT_EQ(fs::exists(host), beyond);
    }
}

} // namespace
