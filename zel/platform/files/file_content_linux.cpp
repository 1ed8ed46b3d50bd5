// SPDX-License-Identifier: MIT
#include "zel/platform/files/file_content_linux.h"

#include <algorithm>
#include <cstddef>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace zel::platform {
namespace {

/// True for the ways in which a kernel says that it can't copy between these two files.
bool must_copy_by_hand(int error) noexcept
{
    return error == EXDEV || error == EINVAL || error == ENOSYS || error == EOPNOTSUPP
        || error == EPERM;
}

/// Copies what lies from `at` to `end`, or to the end of the file when that comes first.
/// \param at  moves on with what was copied.
bool copy_by_hand(int source, int target, off_t & at, off_t end) noexcept
{
    char block[65536];
    while (at < end) {
        auto const wanted
            = static_cast<std::size_t>(std::min<off_t>(end - at, static_cast<off_t>(sizeof block)));
        ssize_t const count = ::pread(source, block, wanted, at);
        if (count == 0) {
            return true;
        }
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        for (ssize_t done = 0; done < count;) {
            ssize_t const written
                = ::pwrite(target, block + done, static_cast<std::size_t>(count - done), at + done);
            if (written >= 0) {
                done += written;
            } else if (errno != EINTR) {
                return false;
            }
        }
        at += count;
    }
    return true;
}

bool copy_range(int source, int target, off_t at, off_t end) noexcept
{
    constexpr off_t most = 0x40000000; // a call that is never refused as too large
    while (at < end) {
        off_t from = at;
        off_t to = at;
        ssize_t const count = ::copy_file_range(
            source, &from, target, &to, static_cast<std::size_t>(std::min(end - at, most)), 0);
        if (count > 0) {
            at += count;
        } else if (count == 0 || must_copy_by_hand(errno)) {
            // 0 is the end of the file, but also what some kernels say of files without a size of
            // their own, such as those under /proc.
            return copy_by_hand(source, target, at, end);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
}

} // namespace

bool copy_content(int source, int target) noexcept
{
    constexpr off_t everything = 0x7FFFFFFFFFFF0000;
    struct stat facts;
    if (::fstat(source, &facts) != 0) {
        return false;
    }
    if (facts.st_size == 0) {
        return copy_range(source, target, 0, everything);
    }
    for (off_t at = 0;;) {
        off_t data = ::lseek(source, at, SEEK_DATA);
        if (data < 0 && errno == ENXIO) {
            break; // nothing but a hole from here
        }
        off_t end = data < 0 ? -1 : ::lseek(source, data, SEEK_HOLE);
        if (end < 0) { // the host can't tell, or the file has become shorter meanwhile
            data = at;
            end = facts.st_size;
        }
        if (!copy_range(source, target, data, end)) {
            return false;
        }
        at = end;
        if (at >= facts.st_size) {
            break;
        }
    }
    struct stat copied;
    return ::fstat(target, &copied) == 0
        && (copied.st_size >= facts.st_size || ::ftruncate(target, facts.st_size) == 0);
}

} // namespace zel::platform
