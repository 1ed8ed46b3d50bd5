// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/profile_replacement_linux.h"

#include "zel/platform/host/retried_linux.h"
#include "zel/platform/host/same_file_linux.h"
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace zel::platform {
namespace {

constexpr bool flush = ZEL_PROFILE_SYNC;
constexpr std::string_view suffix = ".zel-write"; // unlikely in the name of a settings file

/// `.NAME.zel-write`, followed by the number if it is not 0. The middle of a long name is cut out:
/// files with similar long names share a temporary name, and one of them takes a number.
void form_name(char * result, char const * name, std::uint32_t number) noexcept
{
    constexpr int longest = NAME_MAX - 1 - static_cast<int>(suffix.size()) - 9;
    int const size = std::snprintf(result, NAME_MAX + 1, ".%.*s%s", longest, name, suffix.data());
    if (number != 0) {
        std::snprintf(result + size, static_cast<std::size_t>(NAME_MAX + 1 - size), "-%08x",
                      static_cast<unsigned int>(number));
    }
}

/// A number that an attacker cannot guess.
std::uint32_t random_number() noexcept
{
    std::uint32_t result = 0;
    if (::getrandom(&result, sizeof result, GRND_NONBLOCK) != sizeof result) {
        result = static_cast<std::uint32_t>(::getpid());
    }
    return result;
}

bool lock_without_waiting(int file) noexcept
{
    return retried([&] { return ::flock(file, LOCK_EX | LOCK_NB); }) == 0;
}

/// The names of a file's attributes, without the labels that the system sets and removes itself.
class attribute_names {
public:
    explicit attribute_names(int file) noexcept
        : size_(::flistxattr(file, names_, sizeof names_))
        , is_known_(size_ >= 0 || errno != ERANGE)
    {
        size_ = std::max<ssize_t>(size_, 0);
    }

    bool is_known() const noexcept { return is_known_; }
    template <typename Check> bool all(Check && holds) const noexcept
    {
        for (char const * name = names_; name < names_ + size_; name += std::strlen(name) + 1) {
            if (!std::string_view(name).starts_with("security.") && !holds(name)) {
                return false;
            }
        }
        return true;
    }
    bool contain(char const * wanted) const noexcept
    {
        return !all([&](char const * name) { return std::strcmp(name, wanted) != 0; });
    }

private:
    char names_[1024];
    ssize_t size_;
    bool is_known_;
};

/// Gives a file the attributes of another one and no others: an access list that it may have got
/// from its folder is removed.
bool copy_attributes(int from, int to) noexcept
{
    attribute_names const wanted(from);
    attribute_names const given(to);
    return wanted.is_known() && given.is_known() && given.all([&](char const * name) {
        return wanted.contain(name) || ::fremovexattr(to, name) == 0;
    }) && wanted.all([&](char const * name) {
        char value[4096];
        ssize_t const size = ::fgetxattr(from, name, value, sizeof value);
        return size >= 0 && ::fsetxattr(to, name, value, static_cast<std::size_t>(size), 0) == 0;
    });
}

} // namespace

bool write_at(int file, std::string_view bytes, std::size_t position) noexcept
{
    while (!bytes.empty()) {
        ssize_t const count = retried([&] {
            return ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(position));
        });
        if (count <= 0) {
            errno = count == 0 ? ENOSPC : errno;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
        position += static_cast<std::size_t>(count);
    }
    return true;
}

bool cut_file(int file, std::size_t size) noexcept
{
    return retried([&] { return ::ftruncate(file, static_cast<off_t>(size)); }) == 0;
}

bool flush_file(int file) noexcept
{
    return !flush || retried([&] { return ::fdatasync(file); }) == 0;
}

profile_replacement::~profile_replacement()
{
    if (file_.is_open()) {
        int const reason = errno;
        if (has_name()) {
            ::unlinkat(place_->folder(), name_, 0); // while the lock is still held
        }
        ::flock(file_.get(), LOCK_UN);
        errno = reason;
    }
}

bool profile_replacement::create(folder_entry const & place, mode_t mode,
                                 bool writer_is_alone) noexcept
{
    place_ = &place;
    // Other processes may create and remove files of these names at any moment.
    constexpr int attempts = 8;
    constexpr int attempts_with_usual_name = 3;
    char name[sizeof name_];
    for (int attempt = 0; attempt < attempts; ++attempt) {
        form_name(name, place.name(), attempt < attempts_with_usual_name ? 0 : random_number());
        if (create(name, mode)) {
            return true;
        }
        if (errno == EEXIST && attempt < attempts_with_usual_name) {
            if (!remove_leftover(name, writer_is_alone)) {
                attempt = attempts_with_usual_name - 1;
            }
        } else if (errno != EEXIST && errno != ESTALE) {
            return false;
        }
    }
    errno = EEXIST;
    return false;
}

/// \returns false with `errno` set; `ESTALE` when another writer took the file for a leftover.
bool profile_replacement::create(char const * name, mode_t mode) noexcept
{
    bool made = false;
    file_.open([&] {
        if (made) { // called again: a child may share the first file
            ::unlinkat(place_->folder(), name, 0);
        }
        descriptor file(retried([&] {
            constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
            return ::openat(place_->folder(), name, flags, mode);
        }));
        made = file.is_open();
        return file;
    });
    if (!made) {
        return false;
    }
    std::strcpy(name_, name);
    if ((lock_without_waiting(file_.get()) || says_no_locks(errno)) && has_name()) {
        return true;
    }
    file_.close();
    errno = ESTALE;
    return false;
}

/// Removes a file that a killed writer left.
/// \returns false when a file of that name exists and stays.
bool profile_replacement::remove_leftover(char const * name, bool writer_is_alone) const noexcept
{
    int const folder = place_->folder();
    lockable_file old;
    bool const opened = old.open([&] {
        constexpr int flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
        return descriptor(retried([&] { return ::openat(folder, name, flags); }));
    });
    if (opened) {
        // A file that can be locked and still has its name has no writer.
        struct stat mine;
        struct stat there;
        if (!lock_without_waiting(old.get()) || ::fstat(old.get(), &mine) != 0) {
            return false;
        }
        bool const removed = ::fstatat(folder, name, &there, AT_SYMLINK_NOFOLLOW) != 0
            || !same_file(mine, there) || ::unlinkat(folder, name, 0) == 0;
        ::flock(old.get(), LOCK_UN);
        return removed || errno == ENOENT;
    }
    return errno == ENOENT
        || ((writer_is_alone || errno == ELOOP)
            && (::unlinkat(folder, name, 0) == 0 || errno == ENOENT));
}

bool profile_replacement::has_name() const noexcept
{
    struct stat mine;
    struct stat there;
    return ::fstat(file_.get(), &mine) == 0
        && ::fstatat(place_->folder(), name_, &there, AT_SYMLINK_NOFOLLOW) == 0
        && same_file(mine, there);
}

bool profile_replacement::copy_owner_and_attributes(lockable_file const & old) noexcept
{
    struct stat wanted;
    struct stat given;
    if (::fstat(old.get(), &wanted) != 0 || ::fstat(file_.get(), &given) != 0) {
        return false;
    }
    bool const same_owner = wanted.st_uid == given.st_uid && wanted.st_gid == given.st_gid;
    return (same_owner || ::fchown(file_.get(), wanted.st_uid, wanted.st_gid) == 0)
        && copy_attributes(old.get(), file_.get());
}

bool profile_replacement::fill(std::string_view text) noexcept
{
    return cut_file(file_.get(), 0) && write_at(file_.get(), text, 0) && flush_file(file_.get());
}

bool profile_replacement::copy_mode(struct stat const & old) noexcept
{
    mode_t const wanted = old.st_mode & 07777;
    return wanted == private_mode || ::fchmod(file_.get(), wanted) == 0;
}

bool profile_replacement::keep() noexcept
{
    ::flock(file_.get(), LOCK_UN);
    file_.close();
    return true;
}

bool profile_replacement::take_place() noexcept
{
    int const folder = place_->folder();
    return ::renameat(folder, name_, folder, place_->name()) == 0 && keep();
}

bool profile_replacement::become_new_file() noexcept
{
    int const folder = place_->folder();
    if (::renameat2(folder, name_, folder, place_->name(), RENAME_NOREPLACE) == 0) {
        return keep();
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return false;
    }
    // The file system does not support that flag. Try a hard link; if it has none, first create an
    // empty file, which readers treat like a missing one.
    if (::linkat(folder, name_, folder, place_->name(), 0) == 0) {
        ::unlinkat(folder, name_, 0);
        return keep();
    }
    if (errno == EEXIST) {
        return false;
    }
    descriptor const made(retried([&] {
        return ::openat(folder, place_->name(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    }));
    return made.is_open() && take_place();
}

} // namespace zel::platform
