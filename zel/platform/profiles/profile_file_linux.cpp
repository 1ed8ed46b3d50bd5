// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/profile_file_linux.h"

#include "zel/base/atomic.h"
#include "zel/platform/host/fork_handlers.h"
#include "zel/platform/host/retried_linux.h"
#include <algorithm>
#include <cstdio>

#include <cerrno>
#include <ctime>
#include <unistd.h>

namespace zel::platform {
namespace {

// The descriptors that a forked child has to close, plus one; 0 in a free place. If more files than
// this are locked at one moment, the others are not closed in a child.
constexpr int places = 256;
constinit atomic<int> hidden[places]{};

// The number of forks that have begun and of those that are over. A file is safely registered if no
// fork overlapped the time between the call that opened it and its entry in `hidden`.
constinit atomic<std::uint32_t> forks_begun{0};
constinit atomic<std::uint32_t> forks_over{0};

void before_fork() noexcept { ++forks_begun; }
void after_fork() noexcept { ++forks_over; }

void in_child() noexcept
{
    for (auto & place : hidden) {
        if (int const file = place.exchange(0); file != 0) {
            ::close(file - 1);
        }
    }
    forks_over = forks_begun.load(); // other threads of the parent may have been forking too
}

constexpr fork_handlers handlers{before_fork, after_fork, in_child};

/// Opens a file that another process has a lease or a delegation of a network file system on. A
/// plain open waits until the holder has given it up, at most for the host's lease-break-time.
descriptor open_leased(char const * name, int flags) noexcept
{
    descriptor const file(retried([&] { return ::open(name, O_PATH | O_CLOEXEC); }));
    struct stat facts;
    if (!file.is_open() || ::fstat(file.get(), &facts) != 0) {
        return {};
    }
    if (!S_ISREG(facts.st_mode)) {
        errno = EACCES;
        return {};
    }
    char own_name[32]; // not `name`, which may lead to a pipe by now
    std::snprintf(own_name, sizeof own_name, "/proc/self/fd/%d", file.get());
    return descriptor(retried([&] { return ::open(own_name, flags); }));
}

} // namespace

bool says_no_locks(int error) noexcept
{
    // EINVAL: Linux before 3.15 has no locks of open files.
    return error == ENOLCK || error == ENOSYS || error == EOPNOTSUPP || error == EINVAL;
}

/// Waits for forks that are under way.
/// \returns a mark for `hide_from_children`.
std::uint32_t lockable_file::watch_forks() noexcept
{
    add_fork_handlers(fork_place::profiles, handlers);
    constexpr int attempts = 1000; // limited: the calling thread may be inside a fork itself
    for (int attempt = 0;; ++attempt) {
        std::uint32_t const over = forks_over.load();
        std::uint32_t const begun = forks_begun.load();
        if (over == begun || attempt == attempts) {
            return begun;
        }
        timespec const span{0, 50'000};
        ::nanosleep(&span, nullptr);
    }
}

/// \returns false when a forked child may share the file and would not close it.
bool lockable_file::hide_from_children(std::uint32_t mark) noexcept
{
    for (int i = 0; i < places && slot_ < 0; ++i) {
        int const place = (file_.get() + i) % places;
        int free = 0;
        if (hidden[place].load(std::memory_order_relaxed) == 0
            && hidden[place].compare_exchange_strong(free, file_.get() + 1)) {
            slot_ = place;
        }
    }
    return slot_ < 0 || forks_begun.load() == mark;
}

void lockable_file::close() noexcept
{
    // This has to come first: a child would otherwise close another file that has got the number.
    if (slot_ >= 0) {
        hidden[slot_].store(0);
        slot_ = -1;
    }
    file_ = {};
}

bool byte_lock::lock(short kind, lock_timeouts timeouts) noexcept
{
    // The host's own wait has no timeout.
    int waited_for_us = 0; // microseconds
    int waited_for_others = 0;
    for (int pause = 50;; pause = std::min(2 * pause, 1000)) {
        struct flock wanted = description(kind);
        held_ = set(F_OFD_SETLK, wanted);
        if (held_ || says_no_locks(errno)) {
            return true;
        }
        if ((errno != EAGAIN && errno != EACCES) || !set(F_OFD_GETLK, wanted)) {
            return false;
        }
        // If the lock has become free meanwhile, its holder counts as one of this library.
        bool const ours = wanted.l_type == F_UNLCK || may_be_ours(wanted);
        int & waited = ours ? waited_for_us : waited_for_others;
        if (waited >= 1000 * (ours ? timeouts.for_us : timeouts.for_others)) {
            errno = EBUSY;
            return false;
        }
        waited += pause;
        timespec const span{0, pause * 1000L};
        ::nanosleep(&span, nullptr);
    }
}

void byte_lock::unlock() noexcept
{
    // Unlock explicitly: `close` does not release the lock while a forked child shares the file.
    if (held_) {
        int const reason = errno;
        struct flock wanted = description(F_UNLCK);
        set(F_OFD_SETLK, wanted);
        held_ = false;
        errno = reason;
    }
}

struct flock byte_lock::description(short kind) const noexcept
{
    struct flock result = {};
    result.l_type = kind;
    result.l_whence = SEEK_SET;
    result.l_start = byte_;
    result.l_len = 1;
    return result;
}

bool byte_lock::set(int command, struct flock & wanted) const noexcept
{
    return retried([&] { return ::fcntl(file_.get(), command, &wanted); }) == 0;
}

/// True if a lock has the form of this library's. Writers never take shared locks, for which the
/// right to read is enough.
bool byte_lock::may_be_ours(struct flock const & found) const noexcept
{
    return found.l_pid == -1 && found.l_start == byte_ && found.l_len == 1
        && (byte_ != writers_byte || found.l_type == F_WRLCK);
}

descriptor open_profile(char const * name, int access, struct stat & facts) noexcept
{
    int const flags = access | O_CLOEXEC | O_NOCTTY;
    descriptor file(retried([&] { return ::open(name, flags | O_NONBLOCK); }));
    if (!file.is_open() && errno == EWOULDBLOCK) {
        file = open_leased(name, flags);
    }
    if (file.is_open() && ::fstat(file.get(), &facts) != 0) {
        return {};
    }
    if (file.is_open() && (!S_ISREG(facts.st_mode) || facts.st_size > profile_size_limit)) {
        errno = EACCES;
        return {};
    }
    return file;
}

} // namespace zel::platform
