// SPDX-License-Identifier: MIT
#include "zel/platform/files/file_stream.h"

#include "zel/platform/host/descriptor_linux.h"
#include "zel/platform/host/failure.h"
#include "zel/platform/host/retried_linux.h"
#include "zel/platform/paths/host_path.h"
#include "zel/platform/paths/max_path.h"
#include <cstdint>
#include <cstring>

#include <cerrno>
#include <fcntl.h>
#include <sys/single_threaded.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zel::platform {
namespace {

// The C library's own streams lose their buffered data when a signal interrupts the write. So these
// streams use read and write functions of their own. The cookie is the descriptor.

int number(void * cookie) noexcept
{
    return static_cast<int>(reinterpret_cast<std::intptr_t>(cookie));
}

ssize_t read_bytes(void * cookie, char * buffer, std::size_t size) noexcept
{
    return retried([&] { return ::read(number(cookie), buffer, size); });
}

ssize_t write_bytes(void * cookie, char const * buffer, std::size_t size) noexcept
{
    std::size_t done = 0;
    while (done < size) {
        ssize_t const count
            = retried([&] { return ::write(number(cookie), buffer + done, size - done); });
        if (count < 0) {
            break; // the C library takes a short count for an error
        }
        done += static_cast<std::size_t>(count);
    }
    return static_cast<ssize_t>(done);
}

int seek(void * cookie, off64_t * offset, int whence) noexcept
{
    *offset = ::lseek(number(cookie), *offset, whence);
    return *offset < 0 ? -1 : 0;
}

int close(void * cookie) noexcept
{
    // An interrupted close has closed the descriptor nevertheless.
    return ::close(number(cookie)) == 0 || errno == EINTR ? 0 : -1;
}

int open_flags(char const * mode) noexcept
{
    int const access = std::strchr(mode, '+') != nullptr ? O_RDWR
        : *mode == 'r'                                   ? O_RDONLY
                                                         : O_WRONLY;
    int const creation = *mode == 'r' ? 0 : *mode == 'a' ? O_CREAT | O_APPEND : O_CREAT | O_TRUNC;
    return access | creation | O_CLOEXEC;
}

} // namespace

std::FILE * open_stream(char const * path, char const * mode) noexcept
{
    char host[max_path];
    if (!to_host_path(host, path)) {
        return nullptr;
    }
    // For a pipe without another end this waits.
    descriptor file(retried([&] { return ::open(host, open_flags(mode), 0666); }));
    struct stat facts;
    if (!file.is_open() || ::fstat(file.get(), &facts) != 0) {
        return fail_with_null(error_from_errno(errno));
    }
    if (S_ISDIR(facts.st_mode)) {
        return fail_with_null(error_access_denied);
    }
    std::FILE * const stream = ::fopencookie(reinterpret_cast<void *>(std::intptr_t{file.get()}),
                                             mode, {read_bytes, write_bytes, seek, close});
    if (stream == nullptr) {
        return fail_with_null(error_from_errno(errno));
    }
    // For the C library, a stream with custom functions has no descriptor. It uses this field only
    // for `fileno`, and the functions for everything else.
    stream->_fileno = file.release();
    return stream;
}

std::size_t read_stream(std::FILE * stream, void * buffer, std::size_t size) noexcept
{
    return __libc_single_threaded != 0 ? ::fread_unlocked(buffer, 1, size, stream)
                                       : std::fread(buffer, 1, size, stream);
}

std::size_t write_stream(std::FILE * stream, void const * buffer, std::size_t size) noexcept
{
    return __libc_single_threaded != 0 ? ::fwrite_unlocked(buffer, 1, size, stream)
                                       : std::fwrite(buffer, 1, size, stream);
}

} // namespace zel::platform
