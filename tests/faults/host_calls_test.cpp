// SPDX-License-Identifier: MIT
// Each call of the host that an operation makes is refused in turn, falls short, is interrupted, or
// is the last thing that the process does.
#include "tests/faults/traced_calls.h"
#include "tests/files/scratch.h"
#include "tests/support/sanitizers.h"
#include "zel/zel.h"
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

#include <sys/syscall.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;
using namespace zel::platform;
using zel::path;

std::string const fresh(100'000, 'n');
std::string const settings = std::string("[s]\r\na=").append(3000, 'a') + "\r\nz=1\r\n";

/// What the operations find.
struct places {
    places()
    {
        near.write("source", fresh);
        near.write("target", "old");
        near.write("tree/a/b", "");
        near.write("tree/c", "");
        near.write("settings", settings);
        near.write("shared", settings);
        fs::create_symlink("target", near.host("link"));
        fs::create_symlink("made", near.host("dangling"));
        fs::create_hard_link(near.host("shared"), near.host("twin"));
    }
    zel::string name(char const * kind) const { return (kind + near.name()).c_str(); }

    scratch near{fast_place};
    scratch far; // another file system where there is one
};

struct operation {
    char const * name;
    bool (*run)(places const &);
    bool (*done)(places const &); // after `run` has returned true, or has run again
    bool may_break = false; // by a kill
};
[[maybe_unused]] void PrintTo(operation const & it, std::ostream * out) { *out << it.name; }

bool copy(scratch const & to, places const & at, char const * name)
{
    return at.near.path("source").copy(to.path(name));
}

bool write_a_file(places const & at)
{
    zel::file out(at.near.path("made"), zel::file::mode_write, zel::file::kind_binary);
    bool const whole = out.write_string(zel::string(fresh)) == fresh.size();
    out.close(); // raises when the last bytes do not arrive
    return whole;
}

std::size_t entries_of(path folder)
{
    std::list<zel::auto_ptr<path>> entries;
    folder.get_entries(entries);
    return entries.size();
}

zel::auto_ptr<zel::iprofile> store(places const & at, char const * name)
{
    return new zel::ini_file(zel::string(at.near.path(name).c_str()));
}

bool holds(places const & at, char const * name, char const * key)
{
    return store(at, name)->read_string("s", key, "") == "value";
}

/// \returns whether nothing was refused: a write that is refused leaves its reason.
bool write(places const & at, char const * name)
{
    set_last_error(0);
    store(at, name)->write_string("s", "k", "value");
    return last_error() == 0;
}

bool write_through_a_cache(places const & at)
{
    set_last_error(0);
    zel::cached_profile cache(store(at, "settings"));
    cache.write_string("s", "k", "value");
    cache.write_string("s", "other", "value");
    cache.commit();
    return last_error() == 0;
}

/// Takes a unit of a new object through a second handle.
bool use(void * made, void * opened)
{
    bool const used = made != nullptr && opened != nullptr && last_error() == 0
        && wait_for_single_object(opened, 5000) == wait_object_0;
    return (opened == nullptr || close_handle(opened)) && (made == nullptr || close_handle(made))
        && used;
}

bool use_event(places const & at)
{
    set_last_error(0);
    void * const made = create_event(false, true, at.name("event").c_str());
    return use(made, open_event(event_all_access, false, at.name("event").c_str()));
}

bool use_semaphore(places const & at)
{
    set_last_error(0);
    void * const made = create_semaphore(1, 1, at.name("semaphore").c_str());
    return use(made, open_semaphore(semaphore_all_access, false, at.name("semaphore").c_str()));
}

bool use_mutex(places const & at)
{
    set_last_error(0);
    void * const made = create_mutex(true, at.name("mutex").c_str());
    bool const owned = made != nullptr && last_error() == 0;
    void * const opened = open_mutex(mutex_all_access, false, at.name("mutex").c_str());
    bool const used = use(made, opened);
    return used && owned;
}

class sleeper : public zel::thread_obj {
public:
    sleeper()
        : thread_obj(nullptr, "sleeper")
    {
    }
    bool ran = false;

protected:
    unsigned int run() override
    {
        ran = wait_for_single_object(gate_.get_handle(), 5000) == wait_object_0;
        return 0;
    }

private:
    zel::event gate_{true, true};
};

bool run_a_thread(places const &)
{
    zel::auto_ptr<sleeper> const thread(new sleeper);
    thread->start();
    thread->suspend();
    thread->resume();
    thread->wait();
    return thread->ran;
}

bool terminate_a_thread(places const &)
{
    void * const gate = create_event(true, false, nullptr);
    class waiter : public zel::thread_obj {
    public:
        explicit waiter(void * gate)
            : thread_obj(nullptr, "waiter")
            , gate_(gate)
        {
        }

    protected:
        unsigned int run() override { return wait_for_single_object(gate_, infinite); }

    private:
        void * gate_;
    };
    zel::auto_ptr<waiter> const thread(new waiter(gate));
    thread->start();
    while (!thread->terminate(7)) { }
    thread->wait();
    return close_handle(gate);
}

bool post_and_get(places const &)
{
    constexpr unsigned int own = 0x0400;
    window_handle const window = create_window(
        [](window_handle, unsigned int, std::uintptr_t, std::intptr_t value) { return value + 1; });
    bool whole = window != nullptr && message_queue_descriptor() >= 0;
    int answered = 0;
    for (int i = 0; whole && i < 20; ++i) {
        tagMSG message{};
        whole = post_message(window, own, 0, i) && get_message_a(message, window, own, own) == 1;
        answered += whole && dispatch_message_a(message) == i + 1;
    }
    return (window == nullptr || destroy_window(window)) && answered == 20;
}

bool load_a_module(places const & at)
{
    zel::dyn_lib module(zel::string(path(zel::from_native(ZEL_TEST_MODULE)).c_str()), true);
    module.load();
    static_cast<void>(at);
    return module.get_proc_addr("count_call") != nullptr;
}

// clang-format off
#define RUN [](places const & at) -> bool
#define ALWAYS [](places const &) { return true; }
constexpr operation operations[] = {
    {"copy over a file", RUN { return copy(at.near, at, "target"); }, RUN { return at.near.read("target") == fresh; }},
    {"copy over a link", RUN { return copy(at.near, at, "link"); },
     RUN { return at.near.read("target") == fresh && fs::is_symlink(at.near.host("link")); }},
    {"copy through a dangling link", RUN { return copy(at.near, at, "dangling"); }, RUN { return at.near.read("made") == fresh; }},
    {"copy to another file system", RUN { return copy(at.far, at, "new/made"); }, RUN { return at.far.read("new/made") == fresh; }},
    {"move", RUN { return at.near.path("source").rename(at.near.path("made")); },
     RUN { return at.near.read("made") == fresh && !at.near.exists("source"); }},
    {"move to another file system", RUN { return at.near.path("source").rename(at.far.path("made")); },
     RUN { return at.far.read("made") == fresh && !at.near.exists("source"); }, true},
    {"move a link to another file system", RUN { return at.near.path("link").rename(at.far.path("link")); },
     RUN { return fs::is_symlink(at.far.host("link")) && !at.near.exists("link"); }, true},
    {"remove a tree", RUN { return at.near.path("tree").remove(); }, RUN { return !at.near.exists("tree"); }},
    {"empty a folder", RUN { return at.near.path("tree").empty_folder(); }, RUN { return fs::is_empty(at.near.host("tree")); }},
    {"list a folder", RUN { return entries_of(at.near.path("tree")) == 2; }, RUN { return at.near.exists("tree/c"); }},
    {"make a temporary file", RUN { return !path::get_temp_filename(at.near.path("tree")).empty(); },
     RUN { return entries_of(at.near.path("tree")) >= 3; }},
    {"write a file", write_a_file, RUN { return at.near.read("made") == fresh; }},
    {"compare files", RUN { return path::compare_files(at.near.path("shared"), at.near.path("settings")); }, ALWAYS},
    {"write a setting", RUN { return write(at, "settings"); }, RUN { return holds(at, "settings", "k"); }},
    {"write a first setting", RUN { return write(at, "new"); }, RUN { return holds(at, "new", "k"); }},
    {"write a setting in place", RUN { return write(at, "shared"); }, RUN { return holds(at, "shared", "k"); }, true},
    {"commit a cache", write_through_a_cache, RUN { return holds(at, "settings", "other"); }},
    {"a named event", use_event, ALWAYS},
    {"a named semaphore", use_semaphore, ALWAYS},
    {"a named mutex", use_mutex, ALWAYS},
    {"a thread", run_a_thread, ALWAYS},
    {"a thread that is terminated", terminate_a_thread, ALWAYS},
    {"a message queue", post_and_get, ALWAYS},
    {"an identifier", [](places const &) { zel::uid made; made.create(); return made.to_string() != zel::uid().to_string(); }, ALWAYS},
    {"a module", load_a_module, ALWAYS},
};

/// What can go wrong with each call whatever the state of things is: an error that would be a lie,
/// such as ENOENT for what is there, is not among them.
struct { std::vector<int> calls, errors; } const documented[] = {
    {{SYS_open, SYS_openat}, {EACCES, EINTR, EIO, EMFILE, ENFILE, ENOMEM, ENOSPC, EPERM, EROFS}},
    {{SYS_read, SYS_pread64}, {EINTR, EIO, traced_calls::falls_short}},
    {{SYS_write, SYS_pwrite64}, {EDQUOT, EFBIG, EINTR, EIO, ENOSPC, EPERM, traced_calls::falls_short}},
    {{SYS_copy_file_range}, {EIO, ENOMEM, ENOSPC, EOPNOTSUPP, EXDEV, traced_calls::falls_short}},
    {{SYS_fsync, SYS_fdatasync}, {EDQUOT, EINTR, EIO, EINVAL, ENOSPC, EROFS}},
    {{SYS_rename, SYS_renameat, SYS_link, SYS_linkat, SYS_symlinkat}, {EACCES, EBUSY, EDQUOT, EIO, ENOMEM, ENOSPC, EPERM, EROFS}},
    {{SYS_renameat2}, {EACCES, EBUSY, EDQUOT, EINVAL, EIO, ENOMEM, ENOSPC, ENOSYS, EPERM, EROFS, EXDEV}},
    {{SYS_unlink, SYS_unlinkat, SYS_rmdir, SYS_mkdir, SYS_mkdirat}, {EACCES, EBUSY, EIO, ENOMEM, ENOSPC, EPERM, EROFS}},
    {{SYS_fallocate}, {EINTR, EIO, ENOSPC, EOPNOTSUPP}},
    {{SYS_ftruncate}, {EFBIG, EINTR, EINVAL, EIO, ENOSPC, EPERM}},
    {{SYS_fchmod, SYS_fchown, SYS_utimensat}, {EIO, ENOSYS, EPERM, EROFS}},
    {{SYS_flock, SYS_fcntl}, {EINTR, EIO, ENOLCK, ENOSYS}},
    {{SYS_mmap, SYS_munmap}, {ENFILE, ENOMEM}},
    {{SYS_futex}, {EAGAIN, EINTR}},
    {{SYS_clone, SYS_clone3}, {EAGAIN, ENOMEM, EPERM}},
    {{SYS_getrandom}, {EAGAIN, EINTR, ENOSYS, traced_calls::falls_short}},
    {{SYS_poll, SYS_epoll_wait}, {EINTR, ENOMEM}},
    {{SYS_epoll_create1, SYS_epoll_ctl, SYS_eventfd2}, {EMFILE, ENFILE, ENOMEM, ENOSPC}},
    {{SYS_newfstatat, SYS_fstat, SYS_lseek, SYS_readlink, SYS_readlinkat, SYS_getdents64}, {EACCES, EIO, ENOMEM}},
};
// clang-format on

enum : int { succeeded = 0, failed, wrong, raised_another, leaked = 100 }; // plus a number

std::ptrdiff_t open_descriptors()
{
    return std::distance(fs::directory_iterator("/proc/self/fd"), {});
}

bool attempt(operation const & tried, places const & at, bool & raised)
{
    try {
        return tried.run(at);
    } catch (zel::exception const &) {
    } catch (std::bad_alloc const &) {
    } catch (...) {
        raised = true;
    }
    return false;
}

/// In a child: the operation with the fault in it, and once more without one.
int try_twice(operation const & tried, places const & at, std::ptrdiff_t descriptors)
{
    bool raised = false;
    traced_calls::mark();
    bool const first = attempt(tried, at, raised);
    traced_calls::mark();
    if (raised) {
        return raised_another;
    }
    if (!first && !attempt(tried, at, raised)) {
        return wrong;
    }
    std::ptrdiff_t const more = open_descriptors() - descriptors;
    return !tried.done(at) ? wrong
        : descriptors != 0 ? (more > 0    ? leaked
                                  : first ? succeeded
                                          : failed)
                           : leaked + static_cast<int>(open_descriptors());
}

/// Nothing is half there, and nothing is lost.
void expect_old_or_new(places const & at, bool was_killed)
{
    std::string const target = at.near.read("target");
    EXPECT_TRUE(target == "old" || target == fresh);
    EXPECT_TRUE(at.near.read("source") == fresh || at.near.read("made") == fresh
                || at.far.read("made") == fresh);
    EXPECT_TRUE(at.near.exists("link") || at.far.exists("link"));
    EXPECT_TRUE(at.near.read("settings").starts_with(settings.substr(0, 3000)));
    for (auto const * place : {&at.near, &at.far}) {
        for (auto const & entry : fs::directory_iterator(place->name())) {
            EXPECT_TRUE(was_killed || !entry.path().filename().string().starts_with("."))
                << entry.path();
        }
    }
}

/// \returns which calls there are, and in the status how many descriptors are open then.
traced_calls::outcome undisturbed(operation const & tried)
{
    places const at;
    return traced_calls::run({}, [&] { return try_twice(tried, at, 0); });
}

class host_calls : public testing::TestWithParam<operation> {
protected:
    void SetUp() override
    {
        if (under_address_sanitizer || under_thread_sanitizer) {
            GTEST_SKIP() << "calls of the sanitizer's own would fail too";
        }
        if (!traced_calls::are_possible()) {
            GTEST_SKIP() << "this machine lets no process trace its children";
        }
    }
};

INSTANTIATE_TEST_SUITE_P(of, host_calls, testing::ValuesIn(operations), [](auto const & each) {
    std::string name = each.param.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

TEST_P(host_calls, fail_in_turn_and_leave_old_or_new)
{
    auto const & tried = GetParam();
    auto const whole = undisturbed(tried);
    ASSERT_GE(whole.status, int{leaked});
    int points = 0;
    for (auto const & row : documented) {
        for (int const call : row.calls) {
            for (int const error : row.errors) {
                bool hit = whole.calls.contains(call);
                for (int n = 1; hit; ++n, points += hit) {
                    SCOPED_TRACE(testing::Message()
                                 << "system call " << call << ", " << n << "th, fault " << error);
                    places const at;
                    auto const met = traced_calls::run({call, n, error}, [&] {
                        return try_twice(tried, at, whole.status - leaked);
                    });
                    hit = met.hit;
                    EXPECT_TRUE(met.status == succeeded || met.status == failed) << met.status;
                    EXPECT_TRUE(met.status != failed || (hit && error != traced_calls::falls_short))
                        << met.status;
                    expect_old_or_new(at, false);
                    ASSERT_LT(n, 200);
                }
            }
        }
    }
    std::printf("%s: %d points\n", tried.name, points);
}

TEST_P(host_calls, kill_the_process_and_leave_old_or_new)
{
    auto const & tried = GetParam();
    auto const whole = undisturbed(tried);
    int points = 0;
    for (auto const & [call, count] : whole.calls) {
        for (int n = 1; n <= count; ++n, ++points) {
            SCOPED_TRACE(testing::Message() << "system call " << call << ", " << n << "th");
            places const at;
            traced_calls::run({call, n, traced_calls::kills},
                              [&] { return try_twice(tried, at, 0); });
            if (!tried.may_break) {
                expect_old_or_new(at, true);
                EXPECT_EQ(
                    traced_calls::run({}, [&] { return try_twice(tried, at, 0) >= leaked; }).status,
                    1);
            }
        }
    }
    std::printf("%s: %d points\n", tried.name, points);
}

} // namespace
