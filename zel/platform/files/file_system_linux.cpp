// SPDX-License-Identifier: MIT
#include "zel/platform/files/file_system.h"

#include "zel/platform/files/directory_reader_linux.h"
#include "zel/platform/files/file_content_linux.h"
#include "zel/platform/host/descriptor_linux.h"
#include "zel/platform/last_error.h"
#include "zel/platform/paths/host_path.h"
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

bool fail(std::uint32_t code) noexcept
{
    set_last_error(code);
    return false;
}

bool fail() noexcept { return fail(error_from_errno(errno)); }

/// Turns a host call's result into a function's.
bool succeeded(int result) noexcept { return result == 0 || fail(); }

/// A path as the host takes it, with the last error set when there is none.
class host_name {
public:
    explicit host_name(char const * path) noexcept
        : valid_(to_host_path(text_, path))
    {
    }

    explicit operator bool() const noexcept { return valid_; }
    char const * c_str() const noexcept { return text_; }

    /// Without separators at the end, behind which the host would follow a link.
    /// \returns true when there were any.
    bool strip_separators() noexcept
    {
        std::size_t const size = std::strlen(text_);
        std::size_t end = size;
        while (end > 1 && text_[end - 1] == '/') {
            --end;
        }
        text_[end] = '\0';
        return end != size;
    }

private:
    char text_[max_path];
    bool valid_;
};

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
        return fail();
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
                return fail();
            }
        }
        if (inner >= 0) {
            directory_reader next{descriptor(inner)};
            if (!empty_open_directory(next, length + name.size() + 1)) {
                return false;
            }
            if (::unlinkat(reader.folder(), entry->d_name, AT_REMOVEDIR) != 0) {
                return fail();
            }
            continue;
        }
        struct stat facts;
        if (::fstatat(reader.folder(), entry->d_name, &facts, AT_SYMLINK_NOFOLLOW) != 0) {
            return fail();
        }
        if (!unlink_entry(reader.folder(), entry->d_name, facts)) {
            return false;
        }
    }
    return reader.failed() ? fail() : complete;
}

/// An entry in an open folder: what renames and replacements work on.
class place {
public:
    /// \returns false when the folder can't be opened.
    bool open(char const * host) noexcept { return open_in(AT_FDCWD, host); }

    /// Goes on to what the entry leads to while it is a link.
    bool follow_links() noexcept
    {
        char target[PATH_MAX];
        for (int hops = 0; hops < 40; ++hops) { // as many as the host follows
            ssize_t const size = ::readlinkat(folder_.get(), name_, target, sizeof target);
            if (size < 0) {
                return errno == EINVAL || errno == ENOENT || fail();
            }
            if (size == sizeof target) {
                return fail(error_filename_exced_range);
            }
            target[size] = '\0';
            descriptor const from = std::move(folder_);
            folder_ = descriptor();
            if (!open_in(from.get(), target)) {
                return false;
            }
        }
        return fail(error_path_not_found);
    }

    int folder() const noexcept { return folder_.get(); }
    char const * name() const noexcept { return name_; }

private:
    bool open_in(int start, char const * host) noexcept
    {
        std::string_view text = host;
        while (text.size() > 1 && text.ends_with('/')) {
            text.remove_suffix(1);
        }
        std::size_t const slash = text.rfind('/');
        std::string_view const name
            = slash == std::string_view::npos ? text : text.substr(slash + 1);
        if (name.size() >= sizeof name_) {
            return fail(error_filename_exced_range);
        }
        // The root has no name in its folder; a dot stands for it.
        std::string_view const entry = name.empty() ? "." : name;
        name_[entry.copy(name_, entry.size())] = '\0';

        char folder[PATH_MAX] = ".";
        if (slash != std::string_view::npos) {
            folder[text.copy(folder, std::max<std::size_t>(slash, 1))] = '\0';
        }
        folder_ = descriptor(::openat(start, folder, O_PATH | O_DIRECTORY | O_CLOEXEC));
        return folder_.is_open() || fail();
    }

    descriptor folder_;
    char name_[NAME_MAX + 1];
};

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

    bool replace(place const & target) noexcept
    {
        published_ = ::renameat(folder_, name_, target.folder(), target.name()) == 0;
        return published_ || fail();
    }

    bool publish_as(place const & target) noexcept
    {
        published_ = rename_without_replacing(folder_, name_, target.folder(), target.name());
        return published_ || fail();
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
        return fail();
    }
    return S_ISREG(facts.st_mode) || fail(error_access_denied);
}

/// Gives the copy everything of the source.
bool fill(new_file const & copy, descriptor const & source, struct stat const & facts) noexcept
{
    if (!copy.is_open() || !copy_content(source.get(), copy.content())) {
        return fail();
    }
    timespec const times[] = {facts.st_atim, facts.st_mtim};
    // Rights that belong to an owner other than the copy's are not handed on.
    if (::fchmod(copy.content(), facts.st_mode & 0777) != 0
        || ::futimens(copy.content(), times) != 0) {
        return fail();
    }
    return true;
}

bool move_file_across(place const & source, place const & target) noexcept
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

bool move_link_across(place const & source, place const & target) noexcept
{
    char content[PATH_MAX];
    ssize_t const size = ::readlinkat(source.folder(), source.name(), content, sizeof content - 1);
    if (size < 0) {
        return fail();
    }
    content[size] = '\0';
    return succeeded(::symlinkat(content, target.folder(), target.name()));
}

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
        return fail();
    }
    struct stat facts;
    struct stat root;
    if (::fstat(folder.get(), &facts) != 0 || ::stat("/", &root) != 0) {
        return fail();
    }
    if (facts.st_dev == root.st_dev && facts.st_ino == root.st_ino) {
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
    place from;
    place to;
    if (!get_facts_of_entry(from_name, facts) || !to_name || !from.open(from_name.c_str())
        || !to.open(to_name.c_str())) {
        return false;
    }
    if (new_file::rename_without_replacing(from.folder(), from.name(), to.folder(), to.name())) {
        return true;
    }
    if (errno != EXDEV || S_ISDIR(facts.st_mode)) {
        return fail();
    }
    bool const moved
        = S_ISLNK(facts.st_mode) ? move_link_across(from, to) : move_file_across(from, to);
    if (!moved) {
        return false;
    }
    if (::unlinkat(from.folder(), from.name(), 0) == 0) {
        return true;
    }
    fail();
    ::unlinkat(to.folder(), to.name(), 0);
    return false;
}

bool copy_file(char const * source, char const * target) noexcept
{
    host_name const from(source);
    host_name const to(target);
    struct stat facts;
    descriptor content;
    place place_of_target;
    if (!from || !to || !open_source(AT_FDCWD, from.c_str(), 0, content, facts)
        || !place_of_target.open(to.c_str()) || !place_of_target.follow_links()) {
        return false;
    }
    struct stat old;
    if (::fstatat(place_of_target.folder(), place_of_target.name(), &old, AT_SYMLINK_NOFOLLOW)
        == 0) {
        if (old.st_dev == facts.st_dev && old.st_ino == facts.st_ino) {
            return fail(error_sharing_violation);
        }
        if (!S_ISREG(old.st_mode) || is_read_only(old)) {
            return fail(error_access_denied);
        }
    }
    new_file copy(place_of_target.folder());
    return fill(copy, content, facts) && copy.replace(place_of_target);
}

bool get_temp_file_name(char const * folder, char const * prefix, char * result) noexcept
{
    constexpr unsigned int numbers = 0x10000;
    *result = '\0';
    std::uint16_t number = 0;
    if (::getrandom(&number, sizeof number, 0) < 0) {
        return fail();
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
            return fail();
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
        return fail();
    }
    directory_reader reader(std::move(folder));
    while (dirent64 const * const entry = reader.next()) {
        take(context, entry->d_name);
    }
    return reader.failed() ? fail() : true;
}

} // namespace zel::platform
