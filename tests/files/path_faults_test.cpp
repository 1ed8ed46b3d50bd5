// SPDX-License-Identifier: MIT
#include "zel/files/path.h"

#include "scratch.h"
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
    for (char const * name : {"locked/file", "secret", "source", "open/movable"}) {
        area.write(name, "x");
    }
    auto const allow = [&](char const * name, unsigned int rights) {
        fs::permissions(area.host(name), fs::perms(rights));
    };
    allow("open", 0777);
    allow("secret", 0);
    allow("locked/file", 0444); // also where the tests' user owns it
    allow("locked", 0555);
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
        allow("open/tree/unreadable", 0);
        return !changed && area.path("source").copy(area.path("open/copy"))
            && area.path("open/tree").remove();
    }));
    allow("locked", 0755);
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

TEST(path_faults, one_of_two_racing_processes_gets_the_name)
{
    scratch const area;
    for (int round = 0; round < 100; ++round) {
        std::string const target = "target" + std::to_string(round);
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        auto const racer = [&](char const * source) {
            area.write(source, source);
            return child_process([&, source] {
                char go;
                ::close(ends[1]);
                return ::read(ends[0], &go, 1) == 0 && area.path(source).rename(area.path(target));
            });
        };
        child_process first = racer("0");
        child_process second = racer("1");
        ::close(ends[0]);
        ::close(ends[1]);
        bool const first_won = first.result() == 0;
        EXPECT_NE(first_won, second.result() == 0);
        EXPECT_EQ(area.read(target), first_won ? "0" : "1");
        EXPECT_TRUE(area.exists(first_won ? "1" : "0"));
    }
}

TEST(path_faults, a_folder_exchanged_for_a_link_leads_nowhere)
{
    scratch const area;
    area.write("outside/kept", "");
    std::atomic<bool> done = false;
    fs::create_directory_symlink(area.host("outside"), area.host("link"));
    std::string const inner = area.host("tree/inner").string();
    std::string const link = area.host("link").string();
    std::thread swapper([&] {
        while (!done) {
            ::renameat2(AT_FDCWD, inner.c_str(), AT_FDCWD, link.c_str(), RENAME_EXCHANGE);
        }
    });
    for (int round = 0; round < 60; ++round) {
        for (int i = 0; i < 10; ++i) {
            std::error_code ignored;
            fs::create_directories(area.host("tree/inner"), ignored);
            ::close(::open((inner + "/" + std::to_string(i)).c_str(),
                           O_CREAT | O_NOFOLLOW | O_WRONLY | O_CLOEXEC, 0600));
        }
        area.path("tree").remove();
        if (!area.exists("link")) {
            fs::create_directory_symlink(area.host("outside"), area.host("link"));
        }
    }
    done = true;
    swapper.join();
    EXPECT_TRUE(area.exists("outside/kept"));
}

} // namespace
