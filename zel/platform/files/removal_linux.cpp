// SPDX-License-Identifier: MIT
#include "zel/platform/files/removal.h"

#include "zel/platform/files/directory_reader_linux.h"
#include "zel/platform/files/file_facts_linux.h"
#include "zel/platform/host/descriptor_linux.h"
#include "zel/platform/host/failure.h"
#include "zel/platform/host/retried_linux.h"
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

/// Removes an entry that is not a folder.
bool unlink_entry(int folder, char const * name, struct stat const & facts) noexcept
{
    if (is_read_only(facts) || S_ISDIR(facts.st_mode)) {
        return fail(error_access_denied);
    }
    return succeeded(::unlinkat(folder, name, 0));
}

/// Empties folders only through descriptors: a name is looked up only in the folder from which it
/// was read, and never through a link.
///
/// Each level keeps a descriptor as long as there are enough. When the process has none left, the
/// topmost levels close theirs and reopen later as `..` of the level below; the folder found there
/// has to be the same.
class folder_emptier {
public:
    /// \param length  bytes of the folder's path including the backslash behind it. It limits the
    ///                recursion: every level takes at least two of the 259 bytes.
    folder_emptier(descriptor folder, std::size_t length, folder_emptier * above = nullptr) noexcept
        : reader_(std::move(folder))
        , length_(length)
        , above_(above)
    {
    }
    folder_emptier(folder_emptier const &) = delete;
    folder_emptier & operator=(folder_emptier const &) = delete;

    /// Stops at the first entry that can't be removed.
    /// \returns false with the last error set.
    bool run() noexcept
    {
        bool complete = true;
        while (dirent64 const * const entry = reader_.next()) {
            std::string_view const name = entry->d_name;
            if (length_ + name.size() >= max_path || name.find('\\') != std::string_view::npos) {
                complete = fail(error_bad_pathname);
            } else if (!remove(*entry, name.size())) {
                return false;
            }
        }
        return reader_.failed() ? fail_with_errno() : complete;
    }

private:
    bool remove(dirent64 const & entry, std::size_t size) noexcept
    {
        if (entry.d_type == DT_DIR || entry.d_type == DT_UNKNOWN) {
            descriptor inner = open(reader_.folder(), entry.d_name);
            if (inner.is_open()) {
                return remove_folder(std::move(inner), entry.d_name, length_ + size + 1);
            }
            if (errno != ENOTDIR && errno != ELOOP) {
                int const reason = errno;
                // An empty folder can be removed without the right to read it.
                return ::unlinkat(reader_.folder(), entry.d_name, AT_REMOVEDIR) == 0
                    || fail(error_from_errno(reason));
            }
        }
        struct stat facts;
        if (::fstatat(reader_.folder(), entry.d_name, &facts, AT_SYMLINK_NOFOLLOW) != 0) {
            return fail_with_errno();
        }
        return unlink_entry(reader_.folder(), entry.d_name, facts);
    }

    bool remove_folder(descriptor folder, char const * name, std::size_t length) noexcept
    {
        folder_emptier inner(std::move(folder), length, this);
        return inner.run() && (reader_.is_open() || reopen_from(inner))
            && succeeded(::unlinkat(reader_.folder(), name, AT_REMOVEDIR));
    }

    /// Opens a folder; if the process has no descriptor left, closes one of a level above first.
    descriptor open(int start, char const * name) noexcept
    {
        for (;;) {
            descriptor folder(retried([&] {
                return ::openat(start, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            }));
            if (folder.is_open() || (errno != EMFILE && errno != ENFILE) || !close_one_above()) {
                return folder;
            }
        }
    }

    /// \returns false, with `errno` unchanged, when none is left to close.
    bool close_one_above() noexcept
    {
        folder_emptier * highest = nullptr;
        for (folder_emptier * at = above_; at != nullptr && at->reader_.is_open();
             at = at->above_) {
            highest = at;
        }
        return highest != nullptr && highest->close();
    }

    bool close() noexcept
    {
        int const reason = errno;
        bool const known = ::fstat(reader_.folder(), &facts_) == 0;
        if (known) {
            reader_.close();
        }
        errno = reason;
        return known;
    }

    bool reopen_from(folder_emptier & inner) noexcept
    {
        descriptor folder = inner.open(inner.reader_.folder(), "..");
        struct stat facts;
        if (!folder.is_open() || ::fstat(folder.get(), &facts) != 0) {
            return fail_with_errno();
        }
        if (!same_file(facts, facts_)) { // another process has moved the inner folder
            return fail(error_path_not_found);
        }
        reader_.reopen(std::move(folder));
        return true;
    }

    directory_reader reader_;
    std::size_t length_;
    folder_emptier * above_;
    struct stat facts_ = {}; // valid once the descriptor has been closed
};

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
    int const flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (through_link ? 0 : O_NOFOLLOW);
    descriptor folder(retried([&] { return ::open(name.c_str(), flags); }));
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
    return folder_emptier(std::move(folder), std::strlen(text) + 1).run();
}

bool delete_file(char const * path) noexcept
{
    host_name name(path);
    struct stat facts;
    return get_facts_of_entry(name, facts) && unlink_entry(AT_FDCWD, name.c_str(), facts);
}

} // namespace zel::platform
