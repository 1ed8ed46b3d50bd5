// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/profile_reader.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/host/retried_linux.h"
#include "zel/platform/profiles/profile_file_linux.h"
#include "zel/platform/threads/threads.h"
#include <cstddef>
#include <cstdint>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zel::platform {

bool find_in_profile(char const * file_name, entry_finder & finder) noexcept
{
    uninterrupted const guard;
    struct stat facts;
    lockable_file file;
    if (!file.open([&] { return open_profile(file_name, O_RDONLY, facts); })) {
        return fail_with_errno();
    }
    // If the file system has no locks, read without one: writers cannot overwrite in place under a
    // lock there either. A file that another program keeps locked is read as it is.
    byte_lock content(file, content_byte);
    content.lock(F_RDLCK, readers_timeouts);

    char block[32 * 1024];
    for (std::int64_t done = 0; done <= profile_size_limit;) {
        ssize_t const count = retried([&] { return ::read(file.get(), block, sizeof block); });
        if (count < 0) {
            return fail_with_errno();
        }
        done += count;
        // A file whose size is unknown reports 0; a read of 0 bytes ends it. Behind a full block
        // there may be more bytes than when the file was opened.
        auto const size = static_cast<std::size_t>(count);
        if (size == 0 || finder.feed({block, size})
            || (done == facts.st_size && size < sizeof block)) {
            return finder.found() || fail(error_file_not_found);
        }
    }
    return fail(error_access_denied);
}

} // namespace zel::platform
