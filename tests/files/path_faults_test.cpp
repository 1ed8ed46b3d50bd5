// SPDX-License-Identifier: MIT
#include "zel/files/file.h"
#include "zel/files/path.h"

#include "scratch.h"
#include <atomic>
#include <csignal>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using zel::path;

TEST(path_faults, without_rights_nothing_changes)
{
    scratch const area;
    area.write("locked/file", "x");
    area.write("locked/folder/inner", "x");
    area.write("secret", "x");
    area.write("source", "new");
    fs::create_directory(area.host("open"));
    fs::permissions(area.host("open"), fs::perms(0777));
    area.write("open/movable", "x");
    fs::permissions(area.host("open/movable"), fs::perms(0666));
    fs::permissions(area.host("secret"), fs::perms(0));
    // Also where the tests run as an ordinary user, whose own files these are.
    fs::permissions(area.host("locked/file"), fs::perms(0444));
    fs::permissions(area.host("locked/folder"), fs::perms(0555));
    fs::permissions(area.host("locked"), fs::perms(0555));
    EXPECT_EQ(as_ordinary_user([&] {
                  int failures = 0;
                  auto const refused = [&](bool done) { failures += done ? 1 : 0; };
                  refused(area.path("locked/file").remove());
                  refused(area.path("locked/folder").remove());
                  refused(area.path("locked/folder").empty_folder());
                  refused(area.path("locked/new/folder").create());
                  refused(area.path("locked/file").rename(area.path("open/x")));
                  refused(area.path("open/movable").rename(area.path("locked/x")));
                  refused(area.path("source").copy(area.path("locked/file")));
                  refused(area.path("secret").copy(area.path("open/secret")));
                  refused(path::compare_files(area.path("secret"), area.path("secret")));
                  refused(!path::get_temp_filename(area.path("locked")).empty());
                  area.path("locked/file").setAttributes(path::attr_readonly);
                  refused(!area.path("source").copy(area.path("open/copy")));
                  ::mkdir(area.host("open/tree").c_str(), 0777);
                  ::mkdir(area.host("open/tree/unreadable").c_str(), 0);
                  refused(!area.path("open/tree").remove()); // what is empty needs no look inside
                  ::mkdir(area.host("open/unreadable").c_str(), 0);
                  refused(!area.path("open/unreadable").remove());
                  return failures;
              }),
              0);
    fs::permissions(area.host("locked"), fs::perms(0755));
    fs::permissions(area.host("locked/folder"), fs::perms(0755));
    EXPECT_EQ(area.read("locked/file") + area.read("locked/folder/inner"), "xx");
    EXPECT_FALSE(area.exists("open/secret") || area.exists("open/x") || area.exists("locked/x"));
    EXPECT_EQ(area.read("open/copy"), "new");
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

TEST(path_faults, a_full_disk_leaves_the_old_target)
{
    scratch const area;
    area.write("source", std::string(1'000'000, 's'));
    area.write("target", "old");
    fs::create_symlink("nothing", area.host("dangling"));
    EXPECT_EQ(in_child([&] {
                  std::signal(SIGXFSZ, SIG_IGN);
                  ::rlimit const limit{300'000, 300'000};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  if (area.path("source").copy(area.path("target"))
                      || area.path("source").copy(area.path("fresh"))
                      || area.path("source").copy(area.path("dangling"))) {
                      return 1;
                  }
                  zel::file full(area.path("full"), zel::file::mode_write, zel::file::kind_binary);
                  full.write(std::string(299'999, 'b').data(), 299'999);
                  if (full.write("ab", 2) != 2) {
                      return 3; // they wait in the buffer
                  }
                  return type_raised([&] { full.close(); }) == zel::file::exception::cannot_close
                      ? 0
                      : 4;
              }),
              0);
    EXPECT_EQ(area.read("target"), "old");
    EXPECT_EQ(area.entries(), 4);
}

TEST(path_faults, a_tree_goes_with_few_descriptors)
{
    scratch const area;
    for (std::string name = "t"; area.path(name).size() + 4 < 260; name += "/d") {
        area.write(name + "/e/f", "");
    }
    EXPECT_TRUE(holds_in_child([&] {
        int const last = ::open("/", O_RDONLY | O_CLOEXEC);
        ::rlimit const limit{static_cast<::rlim_t>(last) + 3, static_cast<::rlim_t>(last) + 3};
        return ::setrlimit(RLIMIT_NOFILE, &limit) == 0 && area.path("t").remove();
    }));
    EXPECT_FALSE(area.exists("t"));
}

TEST(path_faults, one_of_two_racing_processes_gets_the_name)
{
    scratch const area;
    for (int round = 0; round < 100; ++round) {
        std::string const target = "target" + std::to_string(round);
        int pipe_ends[2];
        ASSERT_EQ(::pipe(pipe_ends), 0);
        std::vector<child_process> children;
        for (int i = 0; i < 2; ++i) {
            area.write("source" + std::to_string(i), std::to_string(i));
            children.emplace_back([&, i] {
                char go;
                ::close(pipe_ends[1]);
                return ::read(pipe_ends[0], &go, 1) == 0
                    && area.path("source" + std::to_string(i)).rename(area.path(target));
            });
        }
        ::close(pipe_ends[0]);
        ::close(pipe_ends[1]);
        bool const won[] = {children[0].result() == 0, children[1].result() == 0};
        EXPECT_NE(won[0], won[1]);
        EXPECT_EQ(area.read(target), won[0] ? "0" : "1");
        EXPECT_TRUE(area.exists(won[0] ? "source1" : "source0"));
    }
}

TEST(path_faults, a_folder_exchanged_for_a_link_leads_nowhere)
{
    scratch const area;
    for (int i = 0; i < 20; ++i) {
        area.write("outside/kept" + std::to_string(i), "");
    }
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
            int const file = ::open((inner + "/" + std::to_string(i)).c_str(),
                                    O_CREAT | O_NOFOLLOW | O_WRONLY | O_CLOEXEC, 0600);
            if (file >= 0) {
                ::close(file);
            }
        }
        area.path("tree").remove();
        if (!area.exists("link")) {
            fs::create_directory_symlink(area.host("outside"), area.host("link"));
        }
    }
    done = true;
    swapper.join();
    // What the swapper let the test itself create there doesn't count.
    for (int i = 0; i < 20; ++i) {
        EXPECT_TRUE(area.exists("outside/kept" + std::to_string(i)));
    }
}

} // namespace
