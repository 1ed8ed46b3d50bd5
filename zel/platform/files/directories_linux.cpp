// SPDX-License-Identifier: MIT
#include "zel/platform/files/directories.h"

#include "zel/platform/files/directory_reader_linux.h"
#include "zel/platform/host/descriptor_linux.h"
#include "zel/platform/host/failure.h"
#include "zel/platform/host/retried_linux.h"
#include "zel/platform/paths/canonical_path.h"
#include "zel/platform/paths/host_name_linux.h"
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <cerrno>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zel::platform {

bool set_current_directory(char const * path) noexcept
{
    host_name const name(path);
    return name && succeeded(::chdir(name.c_str()));
}

bool create_directory(char const * path) noexcept
{
    host_name name(path);
    name.strip_separators();
    return name && succeeded(::mkdir(name.c_str(), 0777));
}

bool get_temp_file_name(char const * folder, char const * prefix, char * result) noexcept
{
    constexpr unsigned int numbers = 0x10000;
    *result = '\0';
    std::uint16_t number = 0;
    if (::getrandom(&number, sizeof number, 0) < 0) {
        return fail_with_errno();
    }
    for (unsigned int attempt = 0; attempt < numbers; ++attempt, ++number) {
        char name[max_path];
        char whole[max_path];
        int const size = std::snprintf(name, sizeof name, "%s%04X.TMP", prefix, number);
        if (size < 0 || size >= static_cast<int>(max_path)
            || path_combine(whole, folder, name) == nullptr) {
            return fail(error_filename_exced_range);
        }
        host_name const host(whole);
        if (*folder == '\0' || !host) {
            return fail(error_path_not_found);
        }
        descriptor const file(retried([&] {
            return ::open(host.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        }));
        if (file.is_open()) {
            std::strcpy(result, whole);
            return true;
        }
        if (errno != EEXIST) {
            return fail_with_errno();
        }
    }
    return fail(error_file_exists);
}

bool list_directory(char const * path, void (*take)(void * context, std::string_view name),
                    void * context)
{
    host_name const name(path);
    if (!name) {
        return false;
    }
    descriptor folder(
        retried([&] { return ::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!folder.is_open()) {
        return fail_with_errno();
    }
    directory_reader reader(std::move(folder));
    while (dirent64 const * const entry = reader.next()) {
        take(context, entry->d_name);
    }
    return reader.failed() ? fail_with_errno() : true;
}

} // namespace zel::platform
