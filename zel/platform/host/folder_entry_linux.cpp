// SPDX-License-Identifier: MIT
#include "zel/platform/host/folder_entry_linux.h"

#include "zel/platform/host/retried_linux.h"
#include "zel/platform/host/same_file_linux.h"
#include <cstdio>
#include <cstring>
#include <string_view>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zel::platform {
namespace {

bool fail_with(int error) noexcept
{
    errno = error;
    return false;
}

descriptor open_folder(int start, char const * name, int flags) noexcept
{
    return descriptor(
        retried([&] { return ::openat(start, name, O_PATH | O_DIRECTORY | O_CLOEXEC | flags); }));
}

/// Opens the folder of an absolute name that contains no link. It opens one component at a time and
/// follows no link, so that a link which replaces a component meanwhile is refused.
/// \param name  is modified.
descriptor open_folder_without_links(char * name) noexcept
{
    descriptor folder = open_folder(AT_FDCWD, "/", 0);
    while (folder.is_open()) {
        name += std::strspn(name, "/");
        if (*name == '\0') {
            break;
        }
        char * const end = name + std::strcspn(name, "/");
        bool const last = *end == '\0';
        *end = '\0';
        folder = open_folder(folder.get(), name, O_NOFOLLOW);
        name = last ? end : end + 1;
    }
    return folder;
}

} // namespace

/// Splits a name into its folder and its last component, and stores the latter in `name_`.
/// \param folder  an array of `PATH_MAX` bytes. It receives the part before the last component,
///                ending in `/.`, so that the host searches for the folder as it does within the
///                whole name.
bool folder_entry::split(char const * name, char * folder) noexcept
{
    std::string_view text = name;
    if (text.empty()) {
        return fail_with(ENOENT);
    }
    while (text.size() > 1 && text.ends_with('/')) {
        text.remove_suffix(1);
    }
    std::size_t const front = text.rfind('/') + 1; // npos + 1 is 0
    std::string_view last = text.substr(front);
    if (last.size() > NAME_MAX || front + 2 > PATH_MAX) {
        return fail_with(ENAMETOOLONG);
    }
    last = last.empty() ? "." : last; // the root has no name; a dot stands for it
    name_[last.copy(name_, last.size())] = '\0';
    std::strcpy(folder + text.copy(folder, front), ".");
    return true;
}

bool folder_entry::holds(int file) const noexcept
{
    struct stat wanted;
    struct stat there;
    if (::fstat(file, &wanted) != 0) {
        return false;
    }
    if (::fstatat(folder(), name_, &there, AT_SYMLINK_NOFOLLOW) != 0) {
        return errno == ENOENT ? fail_with(ESTALE) : false;
    }
    return same_file(wanted, there) || fail_with(ESTALE);
}

bool folder_entry::open(char const * name) noexcept
{
    char folder[PATH_MAX];
    if (!split(name, folder)) {
        return false;
    }
    folder_ = open_folder(AT_FDCWD, folder, 0);
    return folder_.is_open();
}

bool folder_entry::open_of_file(char const * name, int file) noexcept
{
    if (open(name) && holds(file)) {
        return true;
    }
    // The name led through a link, or a folder on the way has been exchanged meanwhile.
    char own_name[32];
    std::snprintf(own_name, sizeof own_name, "/proc/self/fd/%d", file);
    char target[PATH_MAX];
    ssize_t const size = ::readlink(own_name, target, sizeof target);
    if (size < 0) {
        return false;
    }
    if (size == sizeof target) {
        return fail_with(ENAMETOOLONG);
    }
    target[size] = '\0';
    char folder[PATH_MAX];
    if (*target != '/' || !split(target, folder)) { // not reachable from the process's root folder
        return fail_with(ESTALE);
    }
    folder_ = open_folder_without_links(folder);
    if (!folder_.is_open()) {
        return errno == ENOENT || errno == ENOTDIR || errno == ELOOP ? fail_with(ESTALE) : false;
    }
    return holds(file);
}

} // namespace zel::platform
