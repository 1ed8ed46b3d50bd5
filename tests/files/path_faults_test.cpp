// SPDX-License-Identifier: MIT
#include "zel/files/path.h"

#include "scratch.h"
#include "tests/support/threads_at_once.h"
#include <atomic>
#include <thread>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using zel::path;

TEST(path_faults, without_rights_nothing_changes)
{
    scratch const area;
    std::pair<char const *, unsigned int> const rights[]
        = {{"open/movable", 0666}, {"open", 0777},        {"source", 0644},
           {"secret", 0},          {"locked/file", 0444}, {"locked", 0555}};
    for (auto const & [name, allowed] : rights) { // also where the tests' user owns it
        if (!area.exists(name)) {
            area.write(name, "x");
        }
        fs::permissions(area.host(name), fs::perms(allowed));
    }
    EXPECT_TRUE(holds_for_ordinary_user([&] {
        path locked = area.path("locked/file");
        bool const changed = locked.remove() || area.path("locked/new/folder").create()
            || area.path("open/movable").rename(area.path("locked/x"))
            || area.path("source").copy(locked)
            || area.path("secret").copy(area.path("open/secret"))
            || path::compare_files(area.path("secret"), area.path("secret"))
            || !path::get_temp_filename(area.path("locked")).empty();
        // What is empty goes without a look inside.
        fs::create_directories(area.host("open/tree/unreadable"));
        fs::permissions(area.host("open/tree/unreadable"), fs::perms::none);
        return !changed && area.path("source").copy(area.path("open/copy"))
            && area.path("open/tree").remove();
    }));
    fs::permissions(area.host("locked"), fs::perms(0755));
    EXPECT_EQ(area.read("locked/file") + area.read("open/copy"), "xx");
    EXPECT_FALSE(area.exists("open/secret") || area.exists("locked/x"));
}

// With fs.protected_symlinks the host follows a link in a sticky folder only for its own planter.
TEST(path_faults, a_planted_link_is_followed_where_the_host_follows_it)
{
    if (::geteuid() != 0 || get("/proc/sys/fs/protected_symlinks") != "1\n") {
        GTEST_SKIP() << "needs two users and fs.protected_symlinks";
    }
    scratch const area;
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

TEST(path_faults, a_tree_goes_with_few_descriptors)
{
    scratch const area;
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

TEST(path_faults, one_of_two_that_race_for_a_name_gets_it)
{
    scratch const area;
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

TEST(path_faults, a_folder_exchanged_for_a_link_leads_nowhere)
{
    scratch const area;
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
