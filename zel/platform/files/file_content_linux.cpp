// SPDX-License-Identifier: MIT
#include "zel/platform/files/file_content_linux.h"

#include "zel/platform/host/retried_linux.h"
#include <algorithm>
#include <cstddef>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace zel::platform {
namespace {

/// True for the errors with which a kernel reports that it can't copy between these two files.
bool must_copy_by_hand(int error) noexcept
{
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP
        || error == EPERM;
}

/// Copies the bytes from `at` to `end`.
/// \param at  advances with each copied byte; stays below `end` if the file ends first.
bool copy_by_hand(int source, int target, off_t & at, off_t end) noexcept
{
    char block[65536];
    while (at < end) {
        auto const wanted
            = static_cast<std::size_t>(std::min<off_t>(end - at, static_cast<off_t>(sizeof block)));
        ssize_t const count = retried([&] { return ::pread(source, block, wanted, at); });
        if (count <= 0) {
            return count == 0;
        }
        for (ssize_t done = 0; done < count;) {
            ssize_t const written = retried([&] {
                return ::pwrite(target, block + done, static_cast<std::size_t>(count - done),
                                at + done);
            });
            if (written <= 0) {
                errno = written == 0 ? ENOSPC : errno;
                return false;
            }
            done += written;
        }
        at += count;
    }
    return true;
}

/// Like `copy_by_hand`, but inside the kernel where possible.
bool copy_range(int source, int target, off_t & at, off_t end) noexcept
{
    constexpr off_t most = 0x40000000; // a size that no kernel refuses
    while (at < end) {
        off_t from = at;
        off_t to = at;
        auto const wanted = static_cast<std::size_t>(std::min(end - at, most));
        ssize_t const count
            = retried([&] { return ::copy_file_range(source, &from, target, &to, wanted, 0); });
        if (count > 0) {
            at += count;
        } else if (count == 0 || must_copy_by_hand(errno)) {
            // 0 means the end of the file. Some kernels also return it for files without a size,
            // such as those under /proc.
            return copy_by_hand(source, target, at, end);
        } else {
            return false;
        }
    }
    return true;
}

/// Sets the size of the copy to that of the source, which may have been truncated meanwhile.
bool cut_copy(int source, int target, off_t size) noexcept
{
    struct stat now;
    return ::fstat(source, &now) == 0
        && retried([&] { return ::ftruncate(target, std::min(size, now.st_size)); }) == 0;
}

} // namespace

bool copy_content(int source, int target) noexcept
{
    constexpr off_t everything = 0x7FFFFFFFFFFF0000;
    struct stat facts;
    if (::fstat(source, &facts) != 0) {
        return false;
    }
    off_t at = 0;
    if (facts.st_size == 0) { // also for files that have no size until they are read
        return copy_range(source, target, at, everything);
    }
    while (at < facts.st_size) {
        off_t const data = ::lseek(source, at, SEEK_DATA);
        if (data < 0 && errno == ENXIO) { // the file ends in a hole, which is not written
            return cut_copy(source, target, facts.st_size);
        }
        off_t end = data < 0 ? -1 : ::lseek(source, data, SEEK_HOLE);
        if (end < 0) { // the host can't find holes
            end = facts.st_size;
        } else {
            at = data;
        }
        if (!copy_range(source, target, at, end)) {
            return false;
        }
        if (at < end) {
            // The file ended before its reported size: files under /sys report one page each, and
            // another process may truncate any file meanwhile.
            return cut_copy(source, target, at);
        }
    }
    return true;
}

} // namespace zel::platform
