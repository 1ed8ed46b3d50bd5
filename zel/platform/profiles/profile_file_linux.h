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
//   the file           OFD, `writers_byte`   whoever writes, from reading to the end
//   the file           OFD, `content_byte`   exclusive: who overwrites in place, while the bytes
//                                            change; shared: who reads
//   the temporary file flock                 its writer, so that others can tell it from a leftover
//
// Threads that nobody stops or ends meanwhile take them in this order. Replacing a file keeps no
// reader waiting. No wait is without a limit, since any process that may open the file can lock
// these bytes too.
//
// The bytes lie behind every file's end, where no other program locks one by itself: whoever locks
// the file with `flock`, or its content with `fcntl`, is not in the way. Who locks the whole of it
// with `fcntl` is.
namespace zel::platform {

constexpr off_t writers_byte = 0x7A65'6C00'0000'0000;
constexpr off_t content_byte = writers_byte + 2; // neighbours would become one lock

constexpr std::int64_t profile_size_limit = std::int64_t{1} << 30;

/// True for an error that says that the host, or the file system, has no locks of the kind.
bool says_no_locks(int error) noexcept;

/// An open file for locks. Locks belong to what `open` has made, which a forked child shares: it
/// would keep them after its parent's death. So a child closes its copies before `fork` returns.
class lockable_file {
public:
    lockable_file() noexcept = default;
    lockable_file(lockable_file const &) = delete;
    lockable_file & operator=(lockable_file const &) = delete;
    ~lockable_file() { close(); }

    /// \param open  returns a `descriptor`, none with `errno` set when it fails. It is called again
    ///              when another thread forked meanwhile: that child may share the first one.
    /// \returns whether there is a file.
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

/// How long a lock is waited for, in milliseconds.
struct lock_patience {
    int for_us; ///< while somebody has the lock who may be a reader or writer of this library
    int for_others; ///< while somebody has it who is none
};

/// The limits of a writer. No write takes half a minute, on a slow disk neither.
constexpr lock_patience writers_patience{30'000, 2'000};
/// Those of a reader, who then reads without the lock.
constexpr lock_patience readers_patience{2'000, 0};

/// A lock on one byte of a file, until the end of a block.
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
    ///          `errno` set; `EBUSY` when the time was over.
    bool lock(short kind, lock_patience patience) noexcept;
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

/// Opens a file that may hold settings. The host finds it, through links or not, and decides; a
/// pipe or a device does not keep the caller waiting.
/// \returns none with `errno` set; `EACCES` for what is no regular file or holds more than
///          `profile_size_limit` bytes.
descriptor open_profile(char const * name, int access, struct stat & facts) noexcept;

} // namespace zel::platform
