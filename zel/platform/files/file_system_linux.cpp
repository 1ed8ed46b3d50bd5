// SPDX-License-Identifier: MIT
#include "zel/platform/files/file_system.h"

#include "zel/platform/files/directory_reader_linux.h"
#include "zel/platform/files/file_content_linux.h"
#include "zel/platform/host/descriptor_linux.h"
#include "zel/platform/host/failure.h"
#include "zel/platform/host/folder_entry_linux.h"
#include "zel/platform/host/same_file_linux.h"
#include "zel/platform/paths/host_name_linux.h"
#include "zel/platform/paths/shell_path.h"
#include <algorithm>
#include <cstdio>
#include <cstring>

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zel::platform {
namespace {

constexpr mode_t write_bits = S_IWUSR | S_IWGRP | S_IWOTH;

bool get_facts(char const * path, struct stat & facts) noexcept
{
    host_name const name(path);
    return name && succeeded(::stat(name.c_str(), &facts));
}

/// The entry itself, also when it is a link. A separator at the end asks for a folder.
bool get_facts_of_entry(host_name & name, struct stat & facts) noexcept
{
    if (!name) {
        return false;
    }
    bool const folder_wanted = name.strip_separators();
    if (::lstat(name.c_str(), &facts) != 0) {
        return fail_with_errno();
    }
    struct stat target;
    if (!folder_wanted || S_ISDIR(facts.st_mode)
        || (S_ISLNK(facts.st_mode) && ::stat(name.c_str(), &target) == 0
            && S_ISDIR(target.st_mode))) {
        return true;
    }
    return fail(error_path_not_found);
}

bool is_read_only(struct stat const & facts) noexcept
{
    return !S_ISLNK(facts.st_mode) && (facts.st_mode & write_bits) == 0;
}

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

/// A file under a name of its own until it is complete. It goes again unless it is published.
class new_file {
public:
    explicit new_file(int folder) noexcept
        : folder_(folder)
    {
        for (int attempt = 0; attempt < 100 && !content_.is_open(); ++attempt) {
            std::uint64_t number = 0;
            if (::getrandom(&number, sizeof number, 0) < 0) {
                return;
            }
            std::snprintf(name_, sizeof name_, ".zel-%016llx",
                          static_cast<unsigned long long>(number));
            content_ = descriptor(::openat(
                folder_, name_, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
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

    /// Renames in one step with the test whether the target exists.
    static bool rename_without_replacing(int from, char const * source, int to,
                                         char const * target) noexcept
    {
        if (::renameat2(from, source, to, target, RENAME_NOREPLACE) == 0) {
            return true;
        }
        if (errno != EINVAL && errno != ENOSYS) {
            return false;
        }
        // A file system without that flag, or a folder that would move into itself. A link can't
        // replace anything either, and a folder may only replace an empty one, here its own.
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

/// Opens a plain file for reading; nothing else is waited for.
bool open_source(int folder, char const * name, int flags, descriptor & content,
                 struct stat & facts) noexcept
{
    content
        = descriptor(::openat(folder, name, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags));
    if (!content.is_open() || ::fstat(content.get(), &facts) != 0) {
        return fail_with_errno();
    }
    return S_ISREG(facts.st_mode) || fail(error_access_denied);
}

/// Gives the copy everything of the source.
bool fill(new_file const & copy, descriptor const & source, struct stat const & facts) noexcept
{
    if (!copy.is_open() || !copy_content(source.get(), copy.content())) {
        return fail_with_errno();
    }
    timespec const times[] = {facts.st_atim, facts.st_mtim};
    // Rights that belong to an owner other than the copy's are not handed on.
    if (::fchmod(copy.content(), facts.st_mode & 0777) != 0
        || ::futimens(copy.content(), times) != 0) {
        return fail_with_errno();
    }
    return true;
}

bool move_file_across(folder_entry const & source, folder_entry const & target) noexcept
{
    struct stat facts;
    descriptor content;
    if (!open_source(source.folder(), source.name(), O_NOFOLLOW, content, facts)) {
        return false;
    }
    new_file copy(target.folder());
    if (!fill(copy, content, facts)) {
        return false;
    }
    // What the user owned stays his; a user who may not give files away keeps the copy.
    if (::fchown(copy.content(), facts.st_uid, facts.st_gid) == 0) {
        ::fchmod(copy.content(), facts.st_mode & 07777);
    }
    return copy.publish_as(target);
}

bool move_link_across(folder_entry const & source, folder_entry const & target) noexcept
{
    char content[PATH_MAX];
    ssize_t const size = ::readlinkat(source.folder(), source.name(), content, sizeof content - 1);
    if (size < 0) {
        return fail_with_errno();
    }
    content[size] = '\0';
    return succeeded(::symlinkat(content, target.folder(), target.name()));
}

/// The entry whose place a copy takes.
class copy_target {
public:
    copy_target() noexcept = default;
    copy_target(copy_target const &) = delete;
    copy_target & operator=(copy_target const &) = delete;
    ~copy_target()
    {
        if (created_) {
            remove_created();
        }
    }

    /// Finds what the host takes `name` for: where it refuses to follow a link that somebody planted
    /// in a shared folder, this fails too.
    /// \param source  the file that is copied.
    bool find(char const * name, struct stat const & source) noexcept
    {
        constexpr int attempts = 20; // other processes may exchange what is there each time
        for (int attempt = 0; attempt < attempts; ++attempt) {
            descriptor const there(::open(name, O_PATH | O_CLOEXEC));
            if (there.is_open()) {
                struct stat facts;
                if (::fstat(there.get(), &facts) != 0) {
                    return fail_with_errno();
                }
                if (same_file(facts, source)) {
                    return fail(error_sharing_violation);
                }
                if (!S_ISREG(facts.st_mode) || is_read_only(facts)) {
                    return fail(error_access_denied);
                }
                if (entry_.open_of_file(name, there.get())) {
                    return true;
                }
                if (errno != ESTALE) {
                    return fail_with_errno();
                }
                continue;
            }
            struct stat link;
            if (errno != ENOENT || !entry_.open(name)) {
                return fail_with_errno();
            }
            if (::fstatat(entry_.folder(), entry_.name(), &link, AT_SYMLINK_NOFOLLOW) != 0) {
                return errno == ENOENT || fail_with_errno();
            }
            // A link that leads to nothing yet. Only the host can say where a file would come into
            // being, so that it makes an empty one.
            descriptor const made(::open(name, creation_flags, creation_mode));
            if (made.is_open()) {
                created_ = true;
            } else if (errno != ENOENT) {
                return fail_with_errno();
            }
        }
        return fail(error_sharing_violation);
    }

    folder_entry const & entry() const noexcept { return entry_; }

    /// The copy is in its place.
    bool keep() noexcept
    {
        created_ = false;
        return true;
    }

private:
    static constexpr mode_t creation_mode = 0600;
    static constexpr int creation_flags = O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

    /// Leaves what another process has put in the place of the empty file, or into it.
    void remove_created() const noexcept
    {
        struct stat facts;
        if (::fstatat(entry_.folder(), entry_.name(), &facts, AT_SYMLINK_NOFOLLOW) == 0
            && S_ISREG(facts.st_mode) && facts.st_size == 0 && facts.st_nlink == 1
            && (facts.st_mode & 07777 & ~creation_mode) == 0 && facts.st_uid == ::geteuid()) {
            ::unlinkat(entry_.folder(), entry_.name(), 0);
        }
    }

    folder_entry entry_;
    bool created_ = false;
};

} // namespace

std::int32_t get_file_attributes(char const * path) noexcept
{
    struct stat facts;
    if (!get_facts(path, facts)) {
        return invalid_file_attributes;
    }
    char name[max_path];
    path_canonicalize(name, path);
    path_strip_path(name);
    std::int32_t attributes = 0;
    attributes |= is_read_only(facts) ? file_attribute_readonly : 0;
    attributes |= S_ISDIR(facts.st_mode) ? file_attribute_directory : 0;
    path_remove_backslash(name);
    bool const dots = std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
    attributes |= *name == '.' && !dots ? file_attribute_hidden : 0;
    return attributes == 0 ? file_attribute_normal : attributes;
}

bool set_file_attributes(char const * path, std::int32_t attributes) noexcept
{
    if (attributes == invalid_file_attributes) {
        return fail(error_invalid_parameter);
    }
    struct stat facts;
    if (!get_facts(path, facts)) {
        return false;
    }
    bool const read_only = (attributes & file_attribute_readonly) != 0;
    if (read_only == is_read_only(facts)) {
        return true;
    }
    mode_t const mode = facts.st_mode & 07777;
    host_name const name(path);
    return succeeded(::chmod(name.c_str(), read_only ? mode & ~write_bits : mode | S_IWUSR));
}

bool path_file_exists(char const * path) noexcept
{
    struct stat facts;
    return get_facts(path, facts);
}

bool path_is_directory(char const * path) noexcept
{
    struct stat facts;
    return get_facts(path, facts) && (S_ISDIR(facts.st_mode) || fail(error_path_not_found));
}

bool path_is_unlinked_directory(char const * path) noexcept
{
    host_name name(path);
    struct stat facts;
    return get_facts_of_entry(name, facts)
        && (S_ISDIR(facts.st_mode) || fail(error_path_not_found));
}

bool path_make_system_folder(char const * path) noexcept
{
    return path_is_directory(path) && fail(error_access_denied);
}

bool path_unmake_system_folder(char const * path) noexcept { return path_is_directory(path); }

bool get_file_size(char const * path, std::uint64_t & size) noexcept
{
    struct stat facts;
    if (!get_facts(path, facts)) {
        return false;
    }
    size = static_cast<std::uint64_t>(facts.st_size);
    return S_ISREG(facts.st_mode) || fail(error_access_denied);
}

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

bool move_file(char const * source, char const * target) noexcept
{
    host_name from_name(source);
    host_name const to_name(target);
    struct stat facts;
    folder_entry from;
    folder_entry to;
    if (!get_facts_of_entry(from_name, facts) || !to_name) {
        return false;
    }
    if (!from.open(from_name.c_str()) || !to.open(to_name.c_str())) {
        return fail_with_errno();
    }
    if (new_file::rename_without_replacing(from.folder(), from.name(), to.folder(), to.name())) {
        return true;
    }
    if (errno != EXDEV || S_ISDIR(facts.st_mode)) {
        return fail_with_errno();
    }
    bool const moved
        = S_ISLNK(facts.st_mode) ? move_link_across(from, to) : move_file_across(from, to);
    if (!moved) {
        return false;
    }
    if (::unlinkat(from.folder(), from.name(), 0) == 0) {
        return true;
    }
    fail_with_errno();
    ::unlinkat(to.folder(), to.name(), 0);
    return false;
}

bool copy_file(char const * source, char const * target) noexcept
{
    host_name const from(source);
    host_name const to(target);
    struct stat facts;
    descriptor content;
    copy_target place;
    if (!from || !to || !open_source(AT_FDCWD, from.c_str(), 0, content, facts)
        || !place.find(to.c_str(), facts)) {
        return false;
    }
    new_file copy(place.entry().folder());
    return fill(copy, content, facts) && copy.replace(place.entry()) && place.keep();
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
        descriptor const file(
            ::open(host.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
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
    descriptor folder(::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
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
