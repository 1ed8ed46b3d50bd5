// SPDX-License-Identifier: MIT
#include "zel/platform/objects/user_folder_linux.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/host/same_file_linux.h"
#include <cerrno>
#include <charconv>
#include <iterator>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace zel::platform {
namespace {

bool fail_for(std::uint32_t error, char const * reason)
{
    set_last_error(error, reason);
    return false;
}

bool is_alone_of(::uid_t user, struct stat const & facts)
{
    return facts.st_uid == user && (facts.st_mode & 077) == 0;
}

/// The path of a user's folder.
class folder_path {
public:
    explicit folder_path(::uid_t user) noexcept
    {
        *std::to_chars(text_ + prefix.copy(text_, prefix.size()), std::end(text_), user).ptr = '\0';
    }
    char const * c_str() const noexcept { return text_; }

private:
    static constexpr std::string_view prefix = "/dev/shm/zel-";
    char text_[prefix.size() + 11];
};

constexpr int folder_flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

} // namespace

bool fail_in_shared_memory(int host_error) noexcept
{
    switch (host_error) {
    case ENOSPC:
    case EDQUOT:
    case ENOMEM:
        return fail(error_not_enough_memory);
    case ELOOP: // a link
    case ENOTDIR:
    case EISDIR:
        return fail(error_access_denied);
    case ENOENT:
        return fail_for(error_no_system_resources, "the host has no shared memory");
    default:
        return fail(error_from_errno(host_error));
    }
}

bool user_folder::open(bool create) noexcept
{
    ::uid_t const user = ::geteuid();
    folder_path const path(user);
    // Try a few times: another process may be removing the folder meanwhile.
    for (int i = 0; i < 8; ++i) {
        folder_ = descriptor(::open(path.c_str(), folder_flags));
        if (folder_.is_open()) {
            struct stat facts;
            if (::fstat(folder_.get(), &facts) != 0) {
                return fail_in_shared_memory(errno);
            }
            return is_alone_of(user, facts)
                || fail_for(error_access_denied, "the folder in shared memory is not the user's");
        }
        if (errno != ENOENT) {
            return fail_in_shared_memory(errno);
        }
        if (!create) {
            return fail(error_file_not_found);
        }
        if (::mkdir(path.c_str(), 0700) == 0) {
            ::chmod(path.c_str(), 0700); // the umask may have cleared bits
        } else if (errno != EEXIST) {
            return fail_in_shared_memory(errno);
        }
    }
    return fail_in_shared_memory(ENOENT);
}

bool user_folder::open_to_remove() noexcept
{
    folder_ = descriptor(::open(folder_path(::geteuid()).c_str(), folder_flags));
    return folder_.is_open();
}

user_folder::found user_folder::open_file(char const * name, descriptor & file,
                                          struct stat & facts) const noexcept
{
    file = descriptor(::openat(folder_.get(), name, O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (!file.is_open()) {
        if (errno == ENOENT) {
            return found::nothing;
        }
        fail_in_shared_memory(errno);
        return found::error;
    }
    if (::fstat(file.get(), &facts) != 0) {
        fail_in_shared_memory(errno);
        return found::error;
    }
    if (!S_ISREG(facts.st_mode) || !is_alone_of(::geteuid(), facts) || facts.st_nlink > 1) {
        fail_for(error_access_denied, "the file in shared memory is not the user's alone");
        return found::error;
    }
    return found::file;
}

bool user_folder::make_file(char const * name, descriptor & file,
                            struct stat & facts) const noexcept
{
    file = descriptor(
        ::openat(folder_.get(), name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.is_open()) {
        int const reason = errno;
        fail_in_shared_memory(reason);
        errno = reason;
        return false;
    }
    int failure = ::fstat(file.get(), &facts) != 0 ? errno : 0;
    if (failure == 0 && (facts.st_mode & 0777) != 0600 && ::fchmod(file.get(), 0600) != 0) {
        failure = errno; // the umask had cleared bits
    }
    if (failure != 0) {
        ::unlinkat(folder_.get(), name, 0);
        fail_in_shared_memory(failure);
        errno = failure;
    }
    return failure == 0;
}

bool user_folder::leads_to(char const * name, struct stat const & facts) const noexcept
{
    struct stat now;
    return ::fstatat(folder_.get(), name, &now, AT_SYMLINK_NOFOLLOW) == 0 && same_file(now, facts);
}

} // namespace zel::platform
