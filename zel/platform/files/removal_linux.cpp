// SPDX-License-Identifier: MIT
#include "zel/platform/files/removal.h"

#include "zel/platform/files/directory_reader_linux.h"
#include "zel/platform/files/file_facts_linux.h"
#include "zel/platform/host/descriptor_linux.h"
#include "zel/platform/host/failure.h"
#include "zel/platform/host/same_file_linux.h"
#include "zel/platform/paths/canonical_path.h"
#include "zel/platform/paths/host_name_linux.h"
#include "zel/platform/paths/path_parts.h"
#include <cstring>
#include <string_view>
#include <utility>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zel::platform {
namespace {

/// Removes an entry that is no folder.
bool unlink_entry(int folder, char const * name, struct stat const & facts) noexcept
{
    if (is_read_only(facts) || S_ISDIR(facts.st_mode)) {
        return fail(error_access_denied);
    }
    return succeeded(::unlinkat(folder, name, 0));
}

/// Empties a folder through descriptors alone: a name is only ever looked up in the folder that it
/// was read from, and never through a link.
/// \param length  bytes of the folder's path, the backslash behind it among them. It ends the
///                recursion: every level takes two bytes of the 259.
bool empty_open_directory(directory_reader & reader, std::size_t length) noexcept
{
    bool complete = true;
    while (dirent64 const * const entry = reader.next()) {
        std::string_view const name = entry->d_name;
        if (length + name.size() >= max_path || name.find('\\') != std::string_view::npos) {
            complete = fail(error_bad_pathname);
            continue;
        }
        int inner = -1;
        if (entry->d_type == DT_DIR || entry->d_type == DT_UNKNOWN) {
            inner = ::openat(reader.folder(), entry->d_name,
                             O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (inner < 0 && errno != ENOTDIR && errno != ELOOP) {
                int const reason = errno;
                // One that is empty goes without the right to look inside.
                if (::unlinkat(reader.folder(), entry->d_name, AT_REMOVEDIR) == 0) {
                    continue;
                }
                errno = reason;
                return fail_with_errno();
            }
        }
        if (inner >= 0) {
            directory_reader next{descriptor(inner)};
            if (!empty_open_directory(next, length + name.size() + 1)) {
                return false;
            }
            if (::unlinkat(reader.folder(), entry->d_name, AT_REMOVEDIR) != 0) {
                return fail_with_errno();
            }
            continue;
        }
        struct stat facts;
        if (::fstatat(reader.folder(), entry->d_name, &facts, AT_SYMLINK_NOFOLLOW) != 0) {
            return fail_with_errno();
        }
        if (!unlink_entry(reader.folder(), entry->d_name, facts)) {
            return false;
        }
    }
    return reader.failed() ? fail_with_errno() : complete;
}

} // namespace

bool remove_directory(char const * path) noexcept
{
    host_name name(path);
    name.strip_separators();
    return name && succeeded(::rmdir(name.c_str()));
}

bool empty_directory(char const * path, bool through_link) noexcept
{
    host_name name(path);
    if (!name) {
        return false;
    }
    name.strip_separators();
    descriptor folder(
        ::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | (through_link ? 0 : O_NOFOLLOW)));
    if (!folder.is_open()) {
        return fail_with_errno();
    }
    struct stat facts;
    struct stat root;
    if (::fstat(folder.get(), &facts) != 0 || ::stat("/", &root) != 0) {
        return fail_with_errno();
    }
    if (same_file(facts, root)) {
        return fail(error_access_denied);
    }
    char text[max_path];
    if (path_combine(text, path, "") == nullptr) {
        return fail(error_filename_exced_range);
    }
    path_remove_backslash(text);
    directory_reader reader(std::move(folder));
    return empty_open_directory(reader, std::strlen(text) + 1);
}

bool delete_file(char const * path) noexcept
{
    host_name name(path);
    struct stat facts;
    return get_facts_of_entry(name, facts) && unlink_entry(AT_FDCWD, name.c_str(), facts);
}

} // namespace zel::platform
