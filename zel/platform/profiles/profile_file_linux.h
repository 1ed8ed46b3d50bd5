// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/host/descriptor_linux.h"
#include <cstdint>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

// Locks on private-profile files. The kernel ends all of them with the process that holds them.
//
//   on                 kind                  held by
//   the file           OFD, `writers_byte`   the writer, from reading the file to the end
//   the file           OFD, `content_byte`   exclusive: a writer while it overwrites in place;
//                                            shared: a reader
//   the temporary file flock                 its writer; a file without this lock is a leftover
//
// A thread takes them in this order, and is not suspended or terminated meanwhile. Replacing a file
// does not delay readers. Every wait has a limit, because any process that may open the file can
// lock these bytes too.
//
// The bytes lie behind the end of every file, where other programs lock no single byte. A program
// that locks the file with `flock`, or its content with `fcntl`, does not conflict. A program that
// locks the whole file with `fcntl` does.
namespace zel::platform {

constexpr off_t writers_byte = 0x7A65'6C00'0000'0000;
constexpr off_t content_byte = writers_byte + 2; // neighbours would become one lock

constexpr std::int64_t profile_size_limit = std::int64_t{1} << 30;

/// True for an error that means that the host or the file system has no such locks.
bool says_no_locks(int error) noexcept;

/// An open file for locks. A lock belongs to the open file, which a forked child shares: the lock
/// would survive the parent. So a forked child closes its copies before `fork` returns.
class lockable_file {
public:
    lockable_file() noexcept = default;
    lockable_file(lockable_file const &) = delete;
    lockable_file & operator=(lockable_file const &) = delete;
    ~lockable_file() { close(); }

    /// \param open  returns a `descriptor`, or none with `errno` set. It is called again if another
    ///              thread forked meanwhile, because that child may share the first file.
    /// \returns true if a file is open.
    template <typename Open> bool open(Open && open) noexcept
    {
        constexpr int attempts = 10;
        for (int attempt = 0; attempt < attempts; ++attempt) {
            close();
            std::uint32_t const mark = watch_forks();
            file_ = open();
            if (!file_.is_open() || hide_from_children(mark)) {
                break;
            }
        }
        return file_.is_open();
    }
    void close() noexcept;

    bool is_open() const noexcept { return file_.is_open(); }
    int get() const noexcept { return file_.get(); }

private:
    static std::uint32_t watch_forks() noexcept;
    bool hide_from_children(std::uint32_t mark) noexcept;

    descriptor file_;
    int slot_ = -1;
};

/// How long to wait for a lock, in milliseconds.
struct lock_timeouts {
    int for_us; ///< while its holder may be a reader or writer of this library
    int for_others; ///< while its holder is another program
};

/// The limits of a writer. No write takes half a minute, even on a slow disk.
constexpr lock_timeouts writers_timeouts{30'000, 2'000};
/// The limits of a reader, which then reads without the lock.
constexpr lock_timeouts readers_timeouts{2'000, 0};

/// A lock on one byte of a file; the destructor releases it.
class byte_lock {
public:
    byte_lock(lockable_file const & file, off_t byte) noexcept
        : file_(file)
        , byte_(byte)
    {
    }
    byte_lock(byte_lock const &) = delete;
    byte_lock & operator=(byte_lock const &) = delete;
    ~byte_lock() { unlock(); }

    /// \param kind  `F_RDLCK` or `F_WRLCK`.
    /// \returns true when it is locked, or when the host has no such locks (see `held`). False with
    ///          `errno` set; `EBUSY` when the wait timed out.
    bool lock(short kind, lock_timeouts timeouts) noexcept;
    void unlock() noexcept;
    bool held() const noexcept { return held_; }

private:
    struct flock description(short kind) const noexcept;
    bool set(int command, struct flock & wanted) const noexcept;
    bool may_be_ours(struct flock const & found) const noexcept;

    lockable_file const & file_;
    off_t const byte_;
    bool held_ = false;
};

/// Opens a file of settings. The host resolves the name, with its links. It does not wait for a
/// pipe or a device.
/// \returns none with `errno` set; `EACCES` for anything but a regular file, and for a file of more
///          than `profile_size_limit` bytes.
descriptor open_profile(char const * name, int access, struct stat & facts) noexcept;

} // namespace zel::platform
