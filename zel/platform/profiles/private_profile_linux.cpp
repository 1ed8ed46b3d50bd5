// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/private_profile.h"

#include "zel/platform/host/descriptor_linux.h"
#include "zel/platform/last_error.h"
#include "zel/platform/profiles/profile_editor.h"
#include "zel/platform/profiles/profile_text.h"
#include "zel/platform/threads/threads.h"
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace zel::platform {
namespace {

// Locks, all of them ended by the kernel with the process that holds them:
//
//   on                 kind                  held by
//   the temporary file flock                 who writes by replacing the file, for all of it
//   the file           OFD, `writers_byte`   whoever writes, from reading to the end
//   the file           OFD, `content_byte`   exclusive: who overwrites in place, while the bytes
//                                            change; shared: who reads
//
// taken in this order, and by threads that nobody stops or ends meanwhile. Replacing a file keeps
// no reader waiting. None is left to `close`: a child that another thread forks meanwhile shares
// the open file, and with it the lock.
//
// The bytes lie behind every file's end, where no other program locks one by itself: whoever locks
// the file with `flock`, or its content with `fcntl`, is not in the way. Who locks the whole of it
// with `fcntl` is, and may keep it for ever.

constexpr off_t writers_byte = 0x7A65'6C00'0000'0000;
constexpr off_t content_byte = writers_byte + 2; // neighbours would become one lock
constexpr int writers_patience = 2000; // milliseconds that a write waits for other programs' locks

constexpr std::int64_t size_limit = std::int64_t{1} << 30;
constexpr bool flush = ZEL_PROFILE_SYNC;

template <typename Call> auto retried(Call call) noexcept
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

bool fail(std::uint32_t code) noexcept
{
    set_last_error(code);
    return false;
}

bool fail_with_errno() noexcept { return fail(error_from_errno(errno)); }

/// Opens a file that may hold settings; a pipe or a device does not keep the caller waiting.
descriptor open_file(char const * name, int access, struct stat & facts) noexcept
{
    descriptor file(
        retried([&] { return ::open(name, access | O_CLOEXEC | O_NONBLOCK | O_NOCTTY); }));
    if (file.is_open() && ::fstat(file.get(), &facts) != 0) {
        return {};
    }
    if (file.is_open() && (!S_ISREG(facts.st_mode) || facts.st_size > size_limit)) {
        errno = EACCES;
        return {};
    }
    return file;
}

/// A lock on one byte, until the end of a block.
class byte_lock {
public:
    byte_lock(descriptor const & file, off_t byte) noexcept
        : file_(file)
        , byte_(byte)
    {
    }
    byte_lock(byte_lock const &) = delete;
    byte_lock & operator=(byte_lock const &) = delete;
    ~byte_lock() { unlock(); }

    /// Waits as long as it takes for those who lock this very byte, and `patience` milliseconds for
    /// others.
    /// \param kind  `F_RDLCK` or `F_WRLCK`.
    /// \returns false with `errno` set; `EBUSY` when others have not let go.
    bool lock(short kind, int patience) noexcept
    {
        for (int waited = 0;;) {
            struct flock wanted = description(kind);
            locked_ = set(F_OFD_SETLK, wanted);
            if (locked_ || (errno != EAGAIN && errno != EACCES) || !set(F_OFD_GETLK, wanted)) {
                return locked_;
            }
            if (wanted.l_type == F_UNLCK) { // it has become free meanwhile
                continue;
            }
            if (wanted.l_pid == -1 && wanted.l_start == byte_ && wanted.l_len == 1) {
                wanted = description(kind);
                return locked_ = set(F_OFD_SETLKW, wanted);
            }
            if (waited++ == patience) {
                errno = EBUSY;
                return false;
            }
            timespec const pause{0, 1'000'000};
            ::nanosleep(&pause, nullptr);
        }
    }

    void unlock() noexcept
    {
        if (locked_) {
            int const reason = errno;
            struct flock wanted = description(F_UNLCK);
            set(F_OFD_SETLK, wanted);
            locked_ = false;
            errno = reason;
        }
    }

private:
    struct flock description(short kind) const noexcept
    {
        struct flock result = {};
        result.l_type = kind;
        result.l_whence = SEEK_SET;
        result.l_start = byte_;
        result.l_len = 1;
        return result;
    }
    bool set(int command, struct flock & wanted) const noexcept
    {
        return retried([&] { return ::fcntl(file_.get(), command, &wanted); }) == 0;
    }

    descriptor const & file_;
    off_t const byte_;
    bool locked_ = false;
};

bool same_file(struct stat const & a, struct stat const & b) noexcept
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

/// Hands the entry's value to `sink`.
/// \returns false with the last error set when there is none.
bool find_value(std::string_view section, std::string_view name, value_sink & sink,
                char const * file_name) noexcept
{
    uninterrupted const guard;
    struct stat facts;
    descriptor const file = open_file(file_name, O_RDONLY, facts);
    if (!file.is_open()) {
        return fail_with_errno();
    }
    // Where there are no locks nobody overwrites under one; what another program locks is read as
    // it is found.
    byte_lock content(file, content_byte);
    content.lock(F_RDLCK, 0);

    entry_finder finder(section, name, sink);
    char block[32 * 1024];
    for (std::int64_t done = 0; done <= size_limit;) {
        ssize_t const count = retried([&] { return ::read(file.get(), block, sizeof block); });
        if (count < 0) {
            return fail_with_errno();
        }
        done += count;
        // Files whose size is not known beforehand say 0, and a read of nothing ends them. A full
        // block may have more behind it than there was when the file was opened.
        auto const size = static_cast<std::size_t>(count);
        if (size == 0 || finder.feed({block, size})
            || (done == facts.st_size && size < sizeof block)) {
            return finder.found() || fail(error_file_not_found);
        }
    }
    return fail(error_access_denied);
}

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

bool flush_file(int file) noexcept
{
    return !flush || retried([&] { return ::fdatasync(file); }) == 0;
}

bool cut_file(int file, std::size_t size) noexcept
{
    return retried([&] { return ::ftruncate(file, static_cast<off_t>(size)); }) == 0;
}

bool read_whole(int file, std::size_t expected, std::string & text)
{
    text.resize(expected + 1); // room to see the end
    std::size_t size = 0;
    for (;;) {
        ssize_t const count
            = retried([&] { return ::read(file, text.data() + size, text.size() - size); });
        if (count <= 0) {
            text.resize(size);
            return count == 0;
        }
        size += static_cast<std::size_t>(count);
        if (size > static_cast<std::size_t>(size_limit)) {
            errno = EFBIG;
            return false;
        }
        if (size == text.size()) {
            text.resize(2 * size);
        }
    }
}

/// The file's own name, behind the symbolic links that lead to it; it need not exist.
bool follow_links(char const * file, std::string & name)
{
    name = file;
    if (name.empty()) {
        errno = ENOENT;
        return false;
    }
    char target[PATH_MAX];
    for (int links = 0;; ++links) {
        ssize_t const length = ::readlink(name.c_str(), target, sizeof target);
        if (length < 0) {
            return errno == EINVAL || errno == ENOENT;
        }
        if (links == 40 || length == sizeof target) {
            errno = ELOOP;
            return false;
        }
        std::string_view const there(target, static_cast<std::size_t>(length));
        if (there.starts_with('/')) {
            name = there;
        } else {
            name.replace(name.rfind('/') + 1, std::string::npos, there);
        }
    }
}

/// The file beside the old one that takes the new content, and whose lock is the writers' gate.
///
/// It has one name for all of them. One that can be locked and still has its name there belongs to
/// nobody: its writer was killed.
class temporary_file {
public:
    explicit temporary_file(std::string const & place)
    {
        std::size_t const front = place.rfind('/') + 1;
        // Writers whose long names begin alike share a gate, which only makes them take turns.
        constexpr std::string_view suffix = ".zel-write"; // nobody names settings like that
        constexpr std::size_t longest = NAME_MAX - 1 - suffix.size();
        name_.append(place, 0, front).append(".").append(place, front, longest).append(suffix);
    }
    temporary_file(temporary_file const &) = delete;
    temporary_file & operator=(temporary_file const &) = delete;
    ~temporary_file()
    {
        if (file_.is_open()) {
            int const reason = errno;
            ::unlink(name_.c_str()); // while it is locked
            errno = reason;
        }
    }

    /// Waits for those who have it, and makes a new one.
    /// \param for_new_file  whether it gets the rights of a new file; else nobody but the owner may
    ///                      open it, who could otherwise read secrets that are written later.
    bool create(bool for_new_file) noexcept
    {
        for_new_file_ = for_new_file;
        mode_t const mode = for_new_file ? 0666 : 0600;
        for (;;) {
            file_ = descriptor(retried(
                [&] { return ::open(name_.c_str(), O_RDWR | O_CREAT | O_EXCL | options, mode); }));
            if (file_.is_open()) {
                if (lock(file_.get())) {
                    return true;
                }
                if (errno != ESTALE) {
                    return false;
                }
                file_ = {};
            } else if (errno != EEXIST) {
                return false;
            } else if (!remove_leftover()) {
                return false;
            }
        }
    }

    bool exists() const noexcept { return file_.is_open(); }
    bool is_for_new_file() const noexcept { return for_new_file_; }
    int number() const noexcept { return file_.get(); }

    /// Takes over what else belongs to a file.
    bool imitate(struct stat const & old) noexcept
    {
        struct stat facts;
        if (::fstat(number(), &facts) != 0) {
            return false;
        }
        bool const same_owner = facts.st_uid == old.st_uid && facts.st_gid == old.st_gid;
        if (!same_owner && ::fchown(number(), old.st_uid, old.st_gid) != 0) {
            return false;
        }
        constexpr mode_t bits = 07777;
        return (same_owner && (facts.st_mode & bits) == (old.st_mode & bits))
            || ::fchmod(number(), old.st_mode & bits) == 0;
    }

    /// Fills it and gives it its place.
    /// \param replace  false to fail with `EEXIST` when there is a file.
    bool become(std::string const & place, std::string_view text, bool replace) noexcept
    {
        if (!write_at(number(), text, 0) || !flush_file(number())) {
            return false;
        }
        int result = ::renameat2(AT_FDCWD, name_.c_str(), AT_FDCWD, place.c_str(),
                                 replace ? 0 : RENAME_NOREPLACE);
        if (result != 0 && errno == EINVAL && !replace) {
            // Not every file system can tell; it is the gate that keeps other writers out.
            result = ::rename(name_.c_str(), place.c_str());
        }
        if (result != 0) {
            return false;
        }
        ::flock(number(), LOCK_UN);
        file_ = {};
        return true;
    }

private:
    static constexpr int options = O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;

    /// Fails with `ESTALE` when the file has lost its name meanwhile.
    bool lock(int file) const noexcept
    {
        struct stat mine;
        struct stat there;
        if (retried([&] { return ::flock(file, LOCK_EX); }) != 0 || ::fstat(file, &mine) != 0) {
            return false;
        }
        if (::lstat(name_.c_str(), &there) != 0 || !same_file(mine, there)) {
            errno = ESTALE;
            return false;
        }
        return true;
    }

    bool remove_leftover() const noexcept
    {
        descriptor const old(retried([&] { return ::open(name_.c_str(), O_RDONLY | options); }));
        if (!old.is_open() && errno != ELOOP) {
            return errno == ENOENT;
        }
        if (old.is_open() && !lock(old.get())) {
            return errno == ESTALE;
        }
        return ::unlink(name_.c_str()) == 0 || errno == ENOENT;
    }

    std::string name_;
    descriptor file_;
    bool for_new_file_ = false;
};

/// Whether something belongs to the file that `imitate` does not take over: an access control list,
/// or attributes that somebody gave it.
bool has_attributes(int file) noexcept
{
    char names[1024];
    ssize_t const size = ::flistxattr(file, names, sizeof names);
    if (size < 0) {
        return errno == ERANGE;
    }
    for (char const * name = names; name < names + size; name += std::strlen(name) + 1) {
        if (!std::string_view(name).starts_with("security.")) { // labels of the system's
            return true;
        }
    }
    return false;
}

/// Overwrites what differs. What lies beyond the old end goes first, so that a full disk is met
/// before an old byte is touched; after a failure the old bytes come back.
bool overwrite(descriptor const & target, std::string_view before, std::string_view after) noexcept
{
    int const file = target.get();
    byte_lock content(target, content_byte);
    if (!content.lock(F_WRLCK, writers_patience)) {
        return false;
    }
    std::size_t const common = std::min(before.size(), after.size());
    auto const differs = std::mismatch(
        before.begin(), before.begin() + static_cast<std::ptrdiff_t>(common), after.begin());
    auto const first = static_cast<std::size_t>(differs.first - before.begin());
    bool const done = write_at(file, after.substr(common), common)
        && write_at(file, after.substr(first, common - first), first)
        && (after.size() >= before.size() || cut_file(file, after.size())) && flush_file(file);
    if (!done) {
        int const reason = errno;
        write_at(file, before.substr(first), first);
        cut_file(file, before.size());
        errno = reason;
    }
    return done;
}

/// The file that is being written, with the writers' lock on it.
class locked_file {
public:
    locked_file() noexcept = default;
    locked_file(locked_file const &) = delete;
    locked_file & operator=(locked_file const &) = delete;

    /// \returns false with `errno` set; `ENOENT` when there is no file.
    bool open(std::string const & place) noexcept
    {
        for (;;) {
            file_ = open_file(place.c_str(), O_RDWR, facts_);
            if (!file_.is_open()) {
                return false;
            }
            if ((facts_.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) {
                errno = EACCES; // read-only, which the host does not tell the superuser
                return false;
            }
            if (!lock_.lock(F_WRLCK, writers_patience)) {
                return false;
            }
            struct stat there;
            if (::stat(place.c_str(), &there) == 0 && same_file(facts_, there)) {
                return ::fstat(file_.get(), &facts_) == 0; // the size may be another by now
            }
            // It was replaced or removed while this waited.
            lock_.unlock();
        }
    }

    explicit operator bool() const noexcept { return file_.is_open(); }
    descriptor const & file() const noexcept { return file_; }
    struct stat const & facts() const noexcept { return facts_; }

    /// Whether the temporary file can take its place without a loss.
    bool replaceable_by(temporary_file & temporary) const noexcept
    {
        return temporary.exists() && !temporary.is_for_new_file() && facts_.st_nlink == 1
            && !has_attributes(file_.get()) && temporary.imitate(facts_);
    }

private:
    descriptor file_;
    struct stat facts_ = {};
    byte_lock lock_{file_, writers_byte};
};

/// Writes all entries.
/// \returns false with `errno` set when nothing was written.
bool rewrite(std::span<private_profile_entry const> entries, char const * file_name, bool & refused)
{
    uninterrupted const guard;
    std::string place;
    if (!follow_links(file_name, place)) {
        return false;
    }
    temporary_file temporary(place);
    int obstacle = 0; // why there can be no new file
    struct stat there;
    if (!temporary.create(::stat(place.c_str(), &there) != 0)) {
        obstacle = errno;
        if (obstacle != EACCES && obstacle != EPERM && obstacle != EROFS) {
            return false;
        }
    }
    for (;;) {
        locked_file old;
        if (!old.open(place)) {
            if (errno != ENOENT) {
                return false;
            }
            if (obstacle != 0) {
                errno = obstacle;
                return false;
            }
        }
        std::string before;
        auto const size = static_cast<std::size_t>(old.facts().st_size);
        if (old && !read_whole(old.file().get(), size, before)) {
            return false;
        }
        profile_editor editor(before);
        refused = false;
        for (auto const & entry : entries) {
            refused |= !editor.apply(entry);
        }
        std::string const after = editor.text();
        if (after == before) {
            return true;
        }
        if (after.size() > static_cast<std::size_t>(size_limit)) {
            errno = EFBIG;
            return false;
        }
        if (old && !old.replaceable_by(temporary)) {
            return overwrite(old.file(), before, after);
        }
        if (temporary.become(place, after, static_cast<bool>(old))) {
            return true;
        }
        // Somebody who knows nothing of the gate made a file meanwhile: write into that one.
        if (errno != EEXIST || old || !cut_file(temporary.number(), 0)) {
            return false;
        }
    }
}

} // namespace

std::uint32_t get_private_profile_string(std::string_view section, std::string_view name,
                                         std::string_view default_value, char * buffer,
                                         std::uint32_t size, char const * file) noexcept
{
    if (size == 0) {
        return 0;
    }
    text_value value(buffer, size);
    if (find_value(section, name, value, file)) {
        return value.finish();
    }
    std::size_t const count = default_value.copy(buffer, size - 1);
    buffer[count] = '\0';
    return static_cast<std::uint32_t>(count);
}

bool get_private_profile_struct(std::string_view section, std::string_view name, void * buffer,
                                std::uint32_t size, char const * file)
{
    // No file is large enough to hold more, so that no room is needed to see that it does not.
    std::uint32_t const room = size <= size_limit / 2 ? size : 0;
    std::unique_ptr<unsigned char[]> const bytes(new unsigned char[room]);
    block_value value(bytes.get(), room);
    if (!find_value(section, name, value, file)) {
        return false;
    }
    if (!value.sound()) {
        return fail(error_invalid_parameter);
    }
    if (value.size() != size) {
        return fail(error_bad_length);
    }
    std::copy_n(bytes.get(), room, static_cast<unsigned char *>(buffer));
    return true;
}

bool get_private_profile_struct_size(std::string_view section, std::string_view name,
                                     std::uint32_t & size, char const * file) noexcept
{
    size = 0;
    block_value value;
    if (!find_value(section, name, value, file)) {
        return false;
    }
    if (!value.sound()) {
        return fail(error_invalid_parameter);
    }
    size = static_cast<std::uint32_t>(value.size());
    return true;
}

bool write_private_profile_entries(std::span<private_profile_entry const> entries,
                                   char const * file)
{
    bool refused = false;
    if (std::none_of(entries.begin(), entries.end(), can_be_read_back)) {
        refused = !entries.empty();
    } else if (!rewrite(entries, file, refused)) {
        return fail_with_errno();
    }
    return !refused || fail(error_invalid_parameter);
}

bool write_private_profile_string(std::string_view section, std::string_view name,
                                  std::string_view value, char const * file)
{
    private_profile_entry const entry{section, name, value};
    return write_private_profile_entries({&entry, 1}, file);
}

bool write_private_profile_struct(std::string_view section, std::string_view name,
                                  void const * data, std::uint32_t size, char const * file)
{
    private_profile_entry entry{section, name, {}, private_profile_entry::block};
    if (data != nullptr) {
        entry.value = {static_cast<char const *>(data), size};
    } else if (size > 0) {
        entry.kind = private_profile_entry::removal;
    }
    return write_private_profile_entries({&entry, 1}, file);
}

} // namespace zel::platform
