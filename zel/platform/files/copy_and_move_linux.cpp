// SPDX-License-Identifier: MIT
#include "zel/platform/files/copy_and_move.h"

#include "zel/platform/files/file_content_linux.h"
#include "zel/platform/files/file_facts_linux.h"
#include "zel/platform/files/new_file_linux.h"
#include "zel/platform/host/descriptor_linux.h"
#include "zel/platform/host/failure.h"
#include "zel/platform/host/folder_entry_linux.h"
#include "zel/platform/host/retried_linux.h"
#include "zel/platform/host/same_file_linux.h"
#include "zel/platform/paths/host_name_linux.h"
#include <cstdio>

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zel::platform {
namespace {

/// Opens a plain file for reading. It does not wait for a pipe or a device. If another process has
/// a lease on the file, it waits until the host has broken the lease.
bool open_source(int folder, char const * name, int flags, descriptor & content,
                 struct stat & facts) noexcept
{
    auto const open_it = [&](int wanted) {
        return descriptor(
            retried([&] { return ::openat(folder, name, wanted | O_CLOEXEC | flags); }));
    };
    content = open_it(O_RDONLY | O_NONBLOCK | O_NOCTTY);
    if (!content.is_open() && errno == EWOULDBLOCK) {
        // There is a lease. Check the file before waiting, because the name may lead to a pipe by
        // now.
        descriptor const found = open_it(O_PATH);
        if (!found.is_open() || ::fstat(found.get(), &facts) != 0) {
            return fail_with_errno();
        }
        if (!S_ISREG(facts.st_mode)) {
            return fail(error_access_denied);
        }
        char own_name[32];
        std::snprintf(own_name, sizeof own_name, "/proc/self/fd/%d", found.get());
        content = descriptor(retried([&] { return ::open(own_name, O_RDONLY | O_CLOEXEC); }));
    }
    if (!content.is_open() || ::fstat(content.get(), &facts) != 0) {
        return fail_with_errno();
    }
    return S_ISREG(facts.st_mode) || fail(error_access_denied);
}

/// True if a call succeeded, or failed because the file system does not store the attribute; cp
/// accepts that too.
bool kept_or_refused(int result) noexcept
{
    return result == 0 || errno == EPERM || errno == EACCES || errno == EOPNOTSUPP
        || errno == ENOSYS;
}

bool set_mode(int file, mode_t mode) noexcept
{
    struct stat facts;
    return ::fstat(file, &facts) == 0
        && ((facts.st_mode & 07777) == mode || kept_or_refused(::fchmod(file, mode)));
}

bool set_times(int file, struct stat const & source) noexcept
{
    timespec const times[] = {source.st_atim, source.st_mtim};
    return kept_or_refused(::futimens(file, times));
}

bool copy_into(new_file const & copy, descriptor const & source) noexcept
{
    return (copy.is_open() && copy_content(source.get(), copy.content())) || fail_with_errno();
}

bool move_file_across(folder_entry const & source, folder_entry const & target) noexcept
{
    struct stat facts;
    descriptor content;
    if (!open_source(source.folder(), source.name(), O_NOFOLLOW, content, facts)) {
        return false;
    }
    new_file copy(target.folder(), facts.st_mode & S_IRWXU); // its group is not set yet
    if (!copy_into(copy, content)) {
        return false;
    }
    // Keep the source's owner. A user who may not change owners owns the copy; it then gets no
    // set-id bits, which were meant for another owner.
    bool const given = ::fchown(copy.content(), facts.st_uid, facts.st_gid) == 0;
    mode_t const mode = facts.st_mode & (given ? 07777 : 0777);
    if (!set_mode(copy.content(), mode) || !set_times(copy.content(), facts)) {
        return fail_with_errno();
    }
    return copy.publish_as(target);
}

bool move_link_across(folder_entry const & source, folder_entry const & target) noexcept
{
    char content[PATH_MAX];
    ssize_t const size = ::readlinkat(source.folder(), source.name(), content, sizeof content - 1);
    if (size < 0) {
        return fail_with_errno();
    }
    content[size] = '\0';
    return succeeded(::symlinkat(content, target.folder(), target.name()));
}

/// The entry that a copy replaces.
class copy_target {
public:
    copy_target() noexcept = default;
    copy_target(copy_target const &) = delete;
    copy_target & operator=(copy_target const &) = delete;
    ~copy_target()
    {
        if (created_) {
            remove_created();
        }
    }

    /// Resolves `name` as the host does. If the host refuses to follow a link that another user
    /// planted in a shared folder, this fails too.
    /// \param source  the file that is copied.
    bool find(char const * name, struct stat const & source) noexcept
    {
        constexpr int attempts = 20; // other processes may replace the entry between the steps
        for (int attempt = 0; attempt < attempts; ++attempt) {
            descriptor const there(retried([&] { return ::open(name, O_PATH | O_CLOEXEC); }));
            if (there.is_open()) {
                struct stat facts;
                if (::fstat(there.get(), &facts) != 0) {
                    return fail_with_errno();
                }
                if (same_file(facts, source)) {
                    return fail(error_sharing_violation);
                }
                if (!S_ISREG(facts.st_mode) || is_read_only(facts)) {
                    return fail(error_access_denied);
                }
                if (entry_.open_of_file(name, there.get())) {
                    return true;
                }
                if (errno != ESTALE) {
                    return fail_with_errno();
                }
                continue;
            }
            struct stat link;
            if (errno != ENOENT || !entry_.open(name)) {
                return fail_with_errno();
            }
            if (::fstatat(entry_.folder(), entry_.name(), &link, AT_SYMLINK_NOFOLLOW) != 0) {
                return errno == ENOENT || fail_with_errno();
            }
            // A link whose target does not exist. Only the host can tell where the file would be
            // created, so it creates an empty one.
            descriptor const made(
                retried([&] { return ::open(name, creation_flags, creation_mode); }));
            if (made.is_open()) {
                created_ = true;
            } else if (errno != ENOENT) {
                return fail_with_errno();
            }
        }
        return fail(error_sharing_violation);
    }

    folder_entry const & entry() const noexcept { return entry_; }

    /// Call it when the copy is in place: the empty file is then not removed.
    bool keep() noexcept
    {
        created_ = false;
        return true;
    }

private:
    static constexpr mode_t creation_mode = 0600;
    static constexpr int creation_flags = O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

    /// Removes the empty file, unless another process has replaced or written it.
    void remove_created() const noexcept
    {
        struct stat facts;
        if (::fstatat(entry_.folder(), entry_.name(), &facts, AT_SYMLINK_NOFOLLOW) == 0
            && S_ISREG(facts.st_mode) && facts.st_size == 0 && facts.st_nlink == 1
            && (facts.st_mode & 07777 & ~creation_mode) == 0 && facts.st_uid == ::geteuid()) {
            ::unlinkat(entry_.folder(), entry_.name(), 0);
        }
    }

    folder_entry entry_;
    bool created_ = false;
};

} // namespace

bool move_file(char const * source, char const * target) noexcept
{
    host_name from_name(source);
    host_name const to_name(target);
    struct stat facts;
    folder_entry from;
    folder_entry to;
    if (!get_facts_of_entry(from_name, facts) || !to_name) {
        return false;
    }
    if (!from.open(from_name.c_str()) || !to.open(to_name.c_str())) {
        return fail_with_errno();
    }
    if (new_file::rename_without_replacing(from.folder(), from.name(), to.folder(), to.name())) {
        return true;
    }
    if (errno != EXDEV || S_ISDIR(facts.st_mode)) {
        return fail_with_errno();
    }
    struct stat taken;
    if (::fstatat(to.folder(), to.name(), &taken, AT_SYMLINK_NOFOLLOW) == 0) {
        return fail(error_already_exists); // report it before anything is copied
    }
    bool const moved
        = S_ISLNK(facts.st_mode) ? move_link_across(from, to) : move_file_across(from, to);
    if (!moved) {
        return false;
    }
    if (::unlinkat(from.folder(), from.name(), 0) == 0) {
        return true;
    }
    fail_with_errno();
    ::unlinkat(to.folder(), to.name(), 0);
    return false;
}

bool copy_file(char const * source, char const * target) noexcept
{
    host_name const from(source);
    host_name const to(target);
    struct stat facts;
    descriptor content;
    copy_target place;
    if (!from || !to || !open_source(AT_FDCWD, from.c_str(), 0, content, facts)
        || !place.find(to.c_str(), facts)) {
        return false;
    }
    mode_t const mode = facts.st_mode & 0777;
    new_file copy(place.entry().folder(), mode);
    if (!copy_into(copy, content)) {
        return false;
    }
    if (!set_mode(copy.content(), mode) || !set_times(copy.content(), facts)) {
        return fail_with_errno();
    }
    return copy.replace(place.entry()) && place.keep();
}

} // namespace zel::platform
