// SPDX-License-Identifier: MIT
#include "zel/files/path.h"

#include "scratch.h"
#include "tests/support/threads_at_once.h"
#include <atomic>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using zel::path;
using name_set = std::multiset<std::string>;

name_set names(path folder, char const * spec = "*.*")
{
    std::list<zel::auto_ptr<path>> entries;
    folder.get_entries(entries, spec);
    name_set result;
    for (auto const & entry : entries) {
        result.insert(entry->find_filename());
    }
    return result;
}

class path_disk : public testing::Test {
protected:
    fs::perms rights(char const * name) const { return fs::status(area.host(name)).permissions(); }
    void link(char const * content, char const * name) const
    {
        fs::create_symlink(content, area.host(name));
    }

    scratch const area;
};

TEST_F(path_disk, creates_what_is_missing_and_keeps_a_relative_path_relative)
{
    scratch const current;
    area.write("file", "x");
    for (char const * name : {"a/b/c", "a/b/d", "a/b", "c:x/y"}) { // the last is no drive
        EXPECT_TRUE(area.path(name).create());
        EXPECT_TRUE(fs::is_directory(area.host(name)));
    }
    for (path chain : {area.path("file/x"), area.path("file"), path("D:\\x"), path("//s/s/x")}) {
        EXPECT_FALSE(chain.create()) << chain;
    }
    EXPECT_TRUE(path("").create());
    EXPECT_TRUE(holds_in_child([&] {
        current.write("source", "x");
        path source("source");
        return current.path("").set_current() && path("/a/b").create() && path("c").create()
            && path("a\\..\\d\\e").create() && source.copy(path("/f/g"))
            && source.rename(path("/h/i")) && source == ".\\h\\i";
    }));
    EXPECT_EQ(names(current.path("")), (name_set{"a", "c", "d", "f", "h"}));
    EXPECT_EQ(current.read("f/g") + current.read("h/i"), "xx");
}

TEST_F(path_disk, tells_files_from_folders_and_sets_read_only)
{
    area.write("five", "12345");
    area.write("empty", "");
    area.write(".dot", "");
    fs::create_directories(area.host("far/away"));
    link("five", "link");
    link("far/away", "near");
    link("nothing", "dangling");
    fs::permissions(area.host("empty"), fs::perms(0444));
    constexpr unsigned int none = 0xFFFFFFFF;
    // clang-format off
    struct { char const * name; std::int32_t attributes; unsigned int size; } const rows[] = {
        {"five", path::attr_normal, 5}, {"empty", path::attr_readonly, 0}, {".dot", path::attr_hidden, 0},
        {"link", path::attr_normal, 5}, {"near", path::attr_directory, none}, {"dangling", -1, none}, {"five/", -1, none},
        {"far/.", path::attr_directory, none}, {"near/../five", path::attr_normal, 5}, // where the host would follow the link first
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(row.name);
        path const tested = area.path(row.name);
        EXPECT_EQ(tested.getAttributes(), row.attributes);
        EXPECT_EQ(tested.file_size(), row.size);
        EXPECT_EQ(tested.file_exists(), row.attributes != -1);
        EXPECT_EQ(tested.is_directory(), row.attributes == path::attr_directory);
    }
    EXPECT_FALSE(path("").file_exists() || path("D:\\").is_directory());
    for (std::uint64_t const size : {0xFFFFFFFEULL, 0xFFFFFFFFULL, 0x100000001ULL}) {
        fs::resize_file(area.host("five"), size);
        EXPECT_EQ(area.path("five").file_size(), std::min<std::uint64_t>(size, none));
    }
    path file = area.path("five");
    fs::permissions(area.host("five"), fs::perms(0664));
    file.setAttributes(path::attr_readonly | path::attr_archive);
    EXPECT_EQ(rights("five"), fs::perms(0444));
    file.setAttributes(-1);
    file.setAttributes(path::attr_normal);
    EXPECT_EQ(rights("five"), fs::perms(0644));
    EXPECT_FALSE(area.path("").make_system_folder() || file.unmake_system_folder());
    EXPECT_TRUE(area.path("").unmake_system_folder());
}

TEST_F(path_disk, lists_what_matches_with_the_folder_in_front)
{
    for (char const * name : {"a.txt", "B.TXT", ".hidden", "d e.txt", "x;y", "c:z", "..."}) {
        area.write(name, "");
    }
    fs::create_directory(area.host("sub"));
    link("nothing", "dangling");
    std::pair<char const *, name_set> const rows[] = {
        // clang-format off
        {"*.txt", {"a.txt", "B.TXT", "d e.txt"}}, {"x;y", {"x;y"}}, {"nothing*", {}}, {"", {}}, {"sub/*", {}}, {"D:\\*", {}},
        {"*.", {"...", "x;y", "sub", "dangling", "z"}}, {"?.*", {"...", "a.txt", "B.TXT"}}, // z: of c:z, taken for a drive
        // clang-format on
    };
    for (auto const & [spec, expected] : rows) {
        EXPECT_EQ(names(area.path(""), spec), expected) << spec;
    }
    EXPECT_EQ(names(area.path("")).size(), 9U);
    std::list<zel::auto_ptr<path>> entries;
    area.path("").get_entries(entries, "sub");
    area.path("").get_entries(entries, "nothing", false);
    area.path("").get_entries(entries, "a.txt", false);
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_TRUE(*entries.front() == area.path("sub") && *entries.back() == area.path("a.txt"));
    EXPECT_EQ(entries.front()->ref_count(), 1U);
    area.path("missing").get_entries(entries);
    EXPECT_TRUE(entries.empty());

    // Folders whose own names leave room for two bytes, for one, and for none.
    for (std::size_t const room : {2U, 1U, 0U}) {
        std::string name = "deep/" + std::string(100, 'n') + '/';
        name.append(258 - room - area.path(name).size(), 'n');
        area.write(name + "/a", "");
        area.write(name + "/bb", "");
        EXPECT_EQ(names(area.path(name)).size(), room);
    }
}

TEST_F(path_disk, lists_nothing_that_leads_elsewhere)
{
    area.write("folder/..\\victim", "");
    area.write("folder/good", "");
    area.write("c:tmp", "");
    EXPECT_EQ(names(area.path("folder")), name_set{"good"});
    EXPECT_TRUE(holds_in_child([&] {
        std::list<zel::auto_ptr<path>> entries;
        area.path("").set_current();
        path().get_entries(entries, "*tmp");
        path("", "").get_entries(entries, "proc", false); // of the root
        return entries.size() == 2 && *entries.front() == ".\\c:tmp"
            && *entries.back() == "C:\\proc";
    }));
}

TEST_F(path_disk, moves_and_never_replaces)
{
    for (char const * place : {"", fast_place}) { // on another file system where there is one
        scratch const from, to(place);
        for (auto const * at : {&from, &to}) {
            at->write("file", at == &from ? "x" : "y");
            at->write("folder/inner", "z");
            fs::create_symlink("nothing", at->host("link"));
        }
        fs::permissions(from.host("file"), fs::perms(0640));
        path moved = from.path("file");
        for (char const * taken : {"file", "folder", "link"}) {
            EXPECT_FALSE(moved.rename(to.path(taken))) << taken;
        }
        EXPECT_TRUE(moved == from.path("file") && to.read("file") == "y");
        EXPECT_TRUE(moved.rename(to.path("new/name")) && moved == to.path("new/name"));
        EXPECT_EQ(to.read("new/name"), "x");
        EXPECT_EQ(fs::status(to.host("new/name")).permissions(), fs::perms(0640));
        EXPECT_TRUE(from.path("link").rename(to.path("link 2")));
        EXPECT_EQ(fs::read_symlink(to.host("link 2")), "nothing");
        bool const folder_moved = from.path("folder").rename(to.path("moved"));
        EXPECT_NE(folder_moved, from.exists("folder"));
        EXPECT_EQ(names(to.path("")).size(), folder_moved ? 6U : 5U);
    }
    fs::create_directory(area.host("folder"));
    EXPECT_FALSE(area.path("folder").rename(area.path("folder/below/itself")));
    EXPECT_FALSE(area.path("missing").rename(area.path("made/x")));
    EXPECT_TRUE(area.exists("made")) << "the target's folder stays";
}

TEST_F(path_disk, copies_over_files_alone_and_keeps_rights_times_and_links)
{
    area.write("source", std::string(100'000, 's'));
    fs::permissions(area.host("source"), fs::perms(0750));
    auto const time = fs::file_time_type::clock::now() - std::chrono::hours(50);
    fs::last_write_time(area.host("source"), time);
    area.write("old", "old");
    link("old", "link");
    link("later/../fresh", "dangling");
    fs::create_directory(area.host("later"));
    for (char const * target : {"old", "new/place", "link", "dangling"}) {
        SCOPED_TRACE(target);
        EXPECT_TRUE(area.path("source").copy(area.path(target)));
        EXPECT_EQ(area.read(target), area.read("source"));
        EXPECT_EQ(rights(target), fs::perms(0750));
        EXPECT_EQ(fs::last_write_time(area.host(target)), fs::last_write_time(area.host("source")));
    }
    EXPECT_TRUE(fs::is_symlink(area.host("link")) && fs::is_regular_file(area.host("fresh")));
    EXPECT_EQ(names(area.path("")).size(), 7U) << "a working file was left";

    area.write("read-only", "r");
    fs::permissions(area.host("read-only"), fs::perms(0444));
    link("source", "itself");
    link("loop", "loop");
    for (char const * target : {"read-only", "later", "source", "itself", "loop", "source/x"}) {
        EXPECT_FALSE(area.path("source").copy(area.path(target))) << target;
    }
    EXPECT_FALSE(area.path("source").copy(path("C:\\dev\\null"))
                 || area.path("later").copy(area.path("x"))
                 || area.path("missing").copy(area.path("x")));
    EXPECT_EQ(area.read("source").size(), 100'000U);
    EXPECT_EQ(area.read("read-only") + area.read("x"), "r<no file>");
}

TEST_F(path_disk, keeps_holes_and_copies_what_there_is)
{
    area.write("sparse", "begin");
    fs::resize_file(area.host("sparse"), 0x100000000 + 10);
    std::fstream(area.host("sparse")).seekp(0x40000000) << "middle";
    ASSERT_TRUE(area.path("sparse").copy(area.path("copy")));
    EXPECT_EQ(fs::file_size(area.host("copy")), 0x100000000 + 10);
    std::string word(6, '\0');
    std::ifstream(area.host("copy")).seekg(0x40000000).read(word.data(), 6);
    EXPECT_EQ(word, "middle");
    struct ::stat facts;
    ASSERT_EQ(::stat(area.host("copy").c_str(), &facts), 0);
    EXPECT_LT(facts.st_blocks, 1000);
    // Files that tell a size of 0, or of a page, and hold a text.
    for (char const * told : {"/proc/self/status", "/sys/kernel/profiling"}) {
        fs::remove(area.host("told"));
        EXPECT_EQ(zel::from_native(told).copy(area.path("told")), fs::exists(told));
        EXPECT_FALSE(area.read("told").empty());
        EXPECT_EQ(area.read("told").find('\0'), std::string::npos) << told;
    }
}

TEST_F(path_disk, creates_a_new_temporary_file_each_time)
{
    std::set<std::string> made;
    for (int i = 0; i < 200; ++i) {
        path const file = path::get_temp_filename(area.path(""));
        EXPECT_TRUE(file.file_size() == 0 && made.insert(file.c_str()).second);
    }
    EXPECT_EQ(names(area.path(""), "temp*").size(), 200U);
    for (path const & none : {area.path("missing"), path(), path(std::string(250, 'x'))}) {
        EXPECT_TRUE(path::get_temp_filename(none).empty());
    }
}

TEST_F(path_disk, compares_content)
{
    std::string const content(300'000, 'c'), block = content.substr(0, 512);
    std::pair<char const *, std::string> const files[] = {{"a", content},
                                                          {"b", content},
                                                          {"longer", content + "c"},
                                                          {"last differs", content.substr(1) + "d"},
                                                          {"512", block},
                                                          {"512 too", block},
                                                          {"empty", ""}};
    for (auto const & [name, text] : files) {
        area.write(name, text);
    }
    for (auto const & [name, text] : files) {
        for (auto const & [other, other_text] : files) {
            EXPECT_EQ(path::compare_files(area.path(name), area.path(other)), text == other_text)
                << name << ", " << other;
        }
        for (char const * no_file : {"missing", "/"}) {
            EXPECT_FALSE(path::compare_files(area.path(name), area.path(no_file))
                         || path::compare_files(area.path(no_file), area.path(no_file)));
        }
    }
    EXPECT_FALSE(path::compare_files(path("C:\\dev\\zero"), path("C:\\dev\\zero")));
}

TEST_F(path_disk, removes_files_links_and_trees)
{
    area.write("tree/a/b/c", "");
    area.write("tree/d", "");
    area.write("outside/kept", "");
    area.write("read-only", "");
    fs::permissions(area.host("read-only"), fs::perms(0444));
    for (char const * name : {"tree/a/link", "link", "link 2", "link 3"}) {
        fs::create_directory_symlink(area.host("outside"), area.host(name));
    }
    EXPECT_FALSE(area.path("tree/d").empty_folder());
    for (char const * name : {"tree", "link/", "link 2/."}) {
        EXPECT_TRUE(area.path(name).remove()) << name;
    }
    EXPECT_FALSE(area.path("missing").remove() || area.path("read-only").remove()
                 || path("").remove());
    EXPECT_EQ(names(area.path("")), (name_set{"outside", "read-only", "link 3"}));
    EXPECT_EQ(names(area.path("outside")).size(), 1U);
    EXPECT_TRUE(area.path("link 3").empty_folder()) << "the folder that the user named";
    EXPECT_EQ(names(area.path("outside")), name_set{});
    fs::rename(area.host("read-only"), area.host("outside/read-only"));
    EXPECT_FALSE(area.path("outside").remove());
    EXPECT_TRUE(area.exists("outside/read-only"));
}

TEST_F(path_disk, leaves_what_no_path_can_name)
{
    area.write("victim", "x");
    area.write("tree/..\\..\\victim", "");
    area.write("tree/good", "");
    EXPECT_FALSE(area.path("tree").remove() || area.path("tree").empty_folder());
    EXPECT_TRUE(area.exists("tree/..\\..\\victim") && area.exists("victim"));
    EXPECT_FALSE(area.exists("tree/good"));
    for (bool const beyond : {false, true}) { // as deep as a path can name, then one deeper
        std::string name = "t";
        while (area.path(name).size() + 2 < 260) {
            name += "/d";
        }
        fs::path const host = beyond ? area.host(name) / "dd" : area.host(name);
        fs::create_directories(host);
        EXPECT_EQ(area.path("t").remove(), !beyond);
        EXPECT_EQ(fs::exists(host), beyond);
    }
}

// The host's refusals of each call are among the tests of its calls.
TEST_F(path_disk, removes_an_empty_folder_that_it_may_not_read)
{
    fs::permissions(area.host(""), fs::perms(0777));
    EXPECT_TRUE(holds_for_ordinary_user([&] {
        fs::create_directories(area.host("tree/unreadable"));
        fs::permissions(area.host("tree/unreadable"), fs::perms::none);
        return area.path("tree").remove();
    }));
}

// With fs.protected_symlinks the host follows a link in a sticky folder only for its own planter.
TEST_F(path_disk, a_planted_link_is_followed_where_the_host_follows_it)
{
    if (::geteuid() != 0 || get("/proc/sys/fs/protected_symlinks") != "1\n") {
        GTEST_SKIP() << "needs two users and fs.protected_symlinks";
    }
    area.write("source", "new");
    area.write("victim", "old");
    fs::create_directory(area.host("shared"));
    fs::permissions(area.host("shared"), fs::perms(01777));
    for (auto const & [link, target] : {std::pair{"planted", "victim"}, {"dangling", "made"}}) {
        fs::create_symlink(area.host(target), area.host("shared") / link);
        ASSERT_EQ(::lchown((area.host("shared") / link).c_str(), 1234, 1234), 0);
        EXPECT_FALSE(area.path("source").copy(area.path(std::string("shared/") + link))) << link;
    }
    EXPECT_EQ(area.read("victim"), "old");
    EXPECT_FALSE(area.exists("made"));
}

TEST_F(path_disk, a_tree_goes_with_few_descriptors)
{
    for (std::string name = "t"; area.path(name).size() + 4 < 260; name += "/d") {
        area.write(name + "/e/f", "");
    }
    EXPECT_TRUE(holds_in_child([&] {
        auto const last = static_cast<::rlim_t>(::open("/", O_RDONLY | O_CLOEXEC));
        ::rlimit const limit{last + 3, last + 3};
        return ::setrlimit(RLIMIT_NOFILE, &limit) == 0 && area.path("t").remove();
    }));
    EXPECT_FALSE(area.exists("t"));
}

TEST_F(path_disk, one_of_two_that_race_for_a_name_gets_it)
{
    for (int round = 0; round < 300; ++round) {
        std::string const sources[] = {"0", "1"}, target = "target" + std::to_string(round);
        bool won[2];
        area.write("0", "0");
        area.write("1", "1");
        run_at_once(2, [&](int i) { won[i] = area.path(sources[i]).rename(area.path(target)); });
        EXPECT_NE(won[0], won[1]);
        EXPECT_EQ(area.read(target), sources[won[1]]);
        EXPECT_TRUE(area.exists(sources[won[0]]));
    }
}

TEST_F(path_disk, a_folder_exchanged_for_a_link_leads_nowhere)
{
    area.write("outside/kept", "");
    fs::create_directory_symlink(area.host("outside"), area.host("link"));
    std::string const inner = area.file("tree/inner"), link = area.file("link");
    std::atomic<bool> done = false;
    std::thread swapper([&] {
        while (!done) {
            ::renameat2(AT_FDCWD, inner.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE);
        }
    });
    for (int i = 0; i < 600; ++i) {
        std::error_code ignored;
        fs::create_directories(inner, ignored);
        ::close(::open((inner + "/" + std::to_string(i)).c_str(),
                       O_CREAT | O_NOFOLLOW | O_WRONLY | O_CLOEXEC, 0600));
        if (i % 10 == 9) {
            area.path("tree").remove();
            fs::create_directory_symlink(area.host("outside"), link, ignored);
        }
    }
    done = true;
    swapper.join();
    EXPECT_TRUE(area.exists("outside/kept"));
}

} // namespace
