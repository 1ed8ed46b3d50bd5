// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/host/descriptor_linux.h"
#include "zel/platform/host/failure.h"
#include "zel/platform/host/folder_entry_linux.h"
#include "zel/platform/host/retried_linux.h"
#include <cstdint>
#include <cstdio>

#include <cerrno>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zel::platform {

/// A new file under a temporary name. The destructor removes it unless it was published.
class new_file {
public:
    /// \param mode  its first access rights, less the process's `umask`. The owner may always
    ///              write.
    new_file(int folder, mode_t mode) noexcept
        : folder_(folder)
    {
        for (int attempt = 0; attempt < 100 && !content_.is_open(); ++attempt) {
            std::uint64_t number = 0;
            if (retried([&] { return ::getrandom(&number, sizeof number, 0); }) < 0) {
                return;
            }
            std::snprintf(name_, sizeof name_, ".zel-%016llx",
                          static_cast<unsigned long long>(number));
            content_ = descriptor(retried([&] {
                return ::openat(folder_, name_,
                                O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                                mode | S_IWUSR);
            }));
            if (!content_.is_open() && errno != EEXIST) {
                return;
            }
        }
    }
    new_file(new_file const &) = delete;
    new_file & operator=(new_file const &) = delete;
    ~new_file()
    {
        if (content_.is_open() && !published_) {
            ::unlinkat(folder_, name_, 0);
        }
    }

    int content() const noexcept { return content_.get(); }
    bool is_open() const noexcept { return content_.is_open(); }

    bool replace(folder_entry const & target) noexcept
    {
        published_ = ::renameat(folder_, name_, target.folder(), target.name()) == 0;
        return published_ || fail_with_errno();
    }

    bool publish_as(folder_entry const & target) noexcept
    {
        published_ = rename_without_replacing(folder_, name_, target.folder(), target.name());
        return published_ || fail_with_errno();
    }

    /// Renames, and checks in the same step that the target does not exist.
    static bool rename_without_replacing(int from, char const * source, int to,
                                         char const * target) noexcept
    {
        if (::renameat2(from, source, to, target, RENAME_NOREPLACE) == 0) {
            return true;
        }
        if (errno != EINVAL && errno != ENOSYS) {
            return false;
        }
        // Either the file system does not support that flag, or a folder would move into itself.
        // Linking can't replace anything either. A folder can only replace an empty folder, here
        // one that was made for it.
        struct stat facts;
        if (::fstatat(from, source, &facts, AT_SYMLINK_NOFOLLOW) != 0) {
            return false;
        }
        if (!S_ISDIR(facts.st_mode)) {
            return ::linkat(from, source, to, target, 0) == 0
                && (::unlinkat(from, source, 0) == 0 || undo(to, target, 0));
        }
        return ::mkdirat(to, target, 0700) == 0
            && (::renameat(from, source, to, target) == 0 || undo(to, target, AT_REMOVEDIR));
    }

private:
    static bool undo(int folder, char const * name, int flags) noexcept
    {
        int const reason = errno;
        ::unlinkat(folder, name, flags);
        errno = reason;
        return false;
    }

    int folder_;
    char name_[24] = {};
    descriptor content_;
    bool published_ = false;
};

} // namespace zel::platform
