// SPDX-License-Identifier: MIT
// Each call of the host that an operation on files makes fails in turn, falls short, is interrupted,
// or is the last thing that the process does.
#include "zel/files/file.h"

#include "scratch.h"
#include <cerrno>
#include <csignal>
#include <cstdio>

#include <dirent.h>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using zel::path;

constexpr int falls_short = -1; // instead of an error number
constexpr int kills = -2;

int calls_until_fault = 0; // 0: there is none
int fault = 0;

bool is_hit(bool interruptible, std::size_t * size = nullptr)
{
    bool const counts = fault == EINTR ? interruptible : fault != falls_short || size != nullptr;
    if (calls_until_fault == 0 || !counts || --calls_until_fault != 0) {
        return false;
    }
    if (fault == kills) {
        ::raise(SIGKILL);
    }
    if (fault == falls_short) {
        *size = (*size + 1) / 2;
        return false;
    }
    errno = fault;
    return true;
}

// clang-format off
#define WRAPPED(result, name, interruptible, parameters, arguments)                                \
    result __real_##name parameters;                                                               \
    result __wrap_##name parameters { return is_hit(interruptible) ? result(-1) : __real_##name arguments; }
#define WRAPPED_SIZE(name, size, parameters, arguments)                                            \
    ssize_t __real_##name parameters;                                                              \
    ssize_t __wrap_##name parameters { return is_hit(true, &size) ? -1 : __real_##name arguments; }

extern "C" {
WRAPPED(int, open, true, (char const * name, int flags, mode_t mode), (name, flags, mode))
WRAPPED(int, openat, true, (int folder, char const * name, int flags, mode_t mode), (folder, name, flags, mode))
WRAPPED(int, stat, false, (char const * name, struct stat * facts), (name, facts))
WRAPPED(int, lstat, false, (char const * name, struct stat * facts), (name, facts))
WRAPPED(int, fstat, false, (int file, struct stat * facts), (file, facts))
WRAPPED(int, fstatat, false, (int folder, char const * name, struct stat * facts, int flags), (folder, name, facts, flags))
WRAPPED(int, mkdir, false, (char const * name, mode_t mode), (name, mode))
WRAPPED(int, rmdir, false, (char const * name), (name))
WRAPPED(int, unlinkat, false, (int folder, char const * name, int flags), (folder, name, flags))
WRAPPED(int, renameat, false, (int a, char const * from, int b, char const * to), (a, from, b, to))
WRAPPED(int, renameat2, false, (int a, char const * from, int b, char const * to, unsigned int flags), (a, from, b, to, flags))
WRAPPED(int, symlinkat, false, (char const * target, int folder, char const * name), (target, folder, name))
WRAPPED(int, ftruncate, true, (int file, off_t size), (file, size))
WRAPPED(int, fchmod, false, (int file, mode_t mode), (file, mode))
WRAPPED(int, fchown, false, (int file, uid_t user, gid_t group), (file, user, group))
WRAPPED(int, futimens, false, (int file, timespec const * times), (file, times))
WRAPPED(off_t, lseek, false, (int file, off_t offset, int whence), (file, offset, whence))
WRAPPED(ssize_t, readlink, false, (char const * name, char * text, std::size_t size), (name, text, size))
WRAPPED(ssize_t, readlinkat, false, (int folder, char const * name, char * text, std::size_t size), (folder, name, text, size))
WRAPPED(ssize_t, getdents64, false, (int folder, void * block, std::size_t size), (folder, block, size))
WRAPPED_SIZE(read, size, (int file, void * bytes, std::size_t size), (file, bytes, size))
WRAPPED_SIZE(write, size, (int file, void const * bytes, std::size_t size), (file, bytes, size))
WRAPPED_SIZE(pread, size, (int file, void * bytes, std::size_t size, off_t at), (file, bytes, size, at))
WRAPPED_SIZE(pwrite, size, (int file, void const * bytes, std::size_t size, off_t at), (file, bytes, size, at))
WRAPPED_SIZE(copy_file_range, size, (int a, off_t * from, int b, off_t * to, std::size_t size, unsigned int flags), (a, from, b, to, size, flags))
}
// clang-format on

std::string const fresh(100'000, 'n');

/// What the operations find.
struct places {
    places()
    {
        near.write("source", fresh);
        near.write("target", "old");
        near.write("tree/a/b", "");
        near.write("tree/c", "");
        fs::create_symlink("target", near.host("link"));
        fs::create_symlink("made", near.host("dangling"));
    }
    scratch near{fast_place};
    scratch far; // another file system where there is one
};

struct operation {
    char const * name;
    bool (*run)(places const &);
    bool (*done)(places const &);
};

bool copy(scratch const & to, places const & at, char const * name)
{
    return at.near.path("source").copy(to.path(name));
}

/// \returns whether all was written, arrived and was read again.
bool write_and_compare(places const & at)
{
    try {
        zel::file out(at.near.path("made"), zel::file::mode_write, zel::file::kind_binary);
        bool const whole = out.write_string(zel::string(fresh)) == fresh.size();
        out.close();
        return whole && path::compare_files(at.near.path("source"), at.near.path("made"));
    } catch (zel::file::exception const &) {
        return false;
    }
}

std::size_t entries_of(path folder)
{
    std::list<zel::auto_ptr<path>> entries;
    folder.get_entries(entries);
    return entries.size();
}

// clang-format off
#define RUN [](places const & at) -> bool
constexpr operation operations[] = {
    {"copy over a file", RUN { return copy(at.near, at, "target"); }, RUN { return at.near.read("target") == fresh; }},
    {"copy over a link", RUN { return copy(at.near, at, "link"); },
     RUN { return at.near.read("target") == fresh && fs::is_symlink(at.near.host("link")); }},
    {"copy through a dangling link", RUN { return copy(at.near, at, "dangling"); }, RUN { return at.near.read("made") == fresh; }},
    {"copy to another file system", RUN { return copy(at.far, at, "new/made"); }, RUN { return at.far.read("new/made") == fresh; }},
    {"move", RUN { return at.near.path("source").rename(at.near.path("made")); },
     RUN { return at.near.read("made") == fresh && !at.near.exists("source"); }},
    {"move to another file system", RUN { return at.near.path("source").rename(at.far.path("made")); },
     RUN { return at.far.read("made") == fresh && !at.near.exists("source"); }},
    {"move a link to another file system", RUN { return at.near.path("link").rename(at.far.path("link")); },
     RUN { return fs::is_symlink(at.far.host("link")) && !at.near.exists("link"); }},
    {"remove a tree", RUN { return at.near.path("tree").remove(); }, RUN { return !at.near.exists("tree"); }},
    {"empty a folder", RUN { return at.near.path("tree").empty_folder(); }, RUN { return fs::is_empty(at.near.host("tree")); }},
    {"list a folder", RUN { return entries_of(at.near.path("tree")) == 2; }, RUN { return at.near.exists("tree/c"); }},
    {"make a temporary file", RUN { return !path::get_temp_filename(at.near.path("tree")).empty(); },
     RUN { return entries_of(at.near.path("tree")) == 3; }},
    {"write and compare", write_and_compare, RUN { return at.near.read("made") == fresh; }},
};
// clang-format on

/// Nothing is half there, and nothing is lost.
void expect_old_or_new(places const & at, bool leftovers)
{
    std::string const target = at.near.read("target");
    EXPECT_TRUE(target == "old" || target == fresh);
    EXPECT_TRUE(at.near.read("source") == fresh || at.near.read("made") == fresh
                || at.far.read("made") == fresh);
    EXPECT_TRUE(at.near.exists("link") || at.far.exists("link"));
    for (auto const * place : {&at.near, &at.far}) {
        for (auto const & entry : fs::directory_iterator(place->name())) {
            EXPECT_TRUE(leftovers || !entry.path().filename().string().starts_with(".zel-"));
        }
    }
}

std::ptrdiff_t open_descriptors()
{
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
}

TEST(host_calls, fail_in_turn_and_leave_old_or_new)
{
    std::ptrdiff_t const descriptors = open_descriptors();
    for (auto const & tried : operations) {
        int points = 0;
        for (int const reason : {EIO, ENOSPC, EPERM, EMFILE, ENOSYS, EINTR, falls_short}) {
            bool hit = true;
            for (int n = 1; hit; ++n, ++points) {
                SCOPED_TRACE(std::string(tried.name) + ", call " + std::to_string(n) + ", fault "
                             + std::to_string(reason));
                places const at;
                fault = reason;
                calls_until_fault = n;
                bool const result = tried.run(at);
                hit = calls_until_fault == 0;
                calls_until_fault = 0;
                EXPECT_TRUE(!result || tried.done(at));
                EXPECT_TRUE(result || (hit && reason != EINTR && reason != falls_short));
                expect_old_or_new(at, false);
                ASSERT_EQ(open_descriptors(), descriptors);
                ASSERT_LT(n, 100);
            }
        }
        std::printf("%s: %d points\n", tried.name, points);
    }
}

TEST(host_calls, kill_the_process_and_leave_old_or_new)
{
    for (auto const & tried : operations) {
        for (int n = 1;; ++n) {
            SCOPED_TRACE(std::string(tried.name) + ", call " + std::to_string(n));
            places const at;
            int const result = in_child([&] {
                fault = kills;
                calls_until_fault = n;
                return tried.run(at);
            });
            expect_old_or_new(at, true);
            if (result != -1) {
                EXPECT_TRUE(result == 0 && tried.done(at));
                break;
            }
        }
    }
}

} // namespace
