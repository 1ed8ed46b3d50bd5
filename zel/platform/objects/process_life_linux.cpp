// SPDX-License-Identifier: MIT
#include "zel/platform/objects/process_life_linux.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/host/without_cancellation_linux.h"
#include "zel/platform/waits/brief_lock.h"
#include "zel/platform/waits/this_thread_linux.h"
#include "zel/platform/waits/uninterrupted.h"
#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>

namespace zel::platform {

constinit atomic<std::uint64_t> known_process_mark{0};

namespace {

constexpr char const * file_of_locks = "processes";
constexpr std::uint64_t mark_mask = 0xFF'FFFF'FFFE; // even: the next byte is for children
constexpr std::size_t page = 4096;

struct life_lock {
    void * mapping; // keeps the lock; null for none
    std::uint64_t mark;
    struct stat file;
};

constinit brief_lock registration;
constinit life_lock own_lock{};
constinit life_lock inherited_lock{}; // in a child: on the byte after its parent's mark
constinit life_lock lock_of_fork{}; // during a fork: the lock that the child will inherit
constinit atomic<std::uint32_t> forks{0}; // since children with inherited handles were last seen
constinit atomic<std::uint64_t> known_namespace{0};

void add_to_depth(std::uint32_t number)
{
    atomic<std::uint32_t> & depth = this_thread.depth;
    depth.store(depth.load(std::memory_order_relaxed) + number, std::memory_order_relaxed);
    signal_fence();
}

std::uint64_t random_mark()
{
    std::uint64_t mark = 0;
    while ((mark & mark_mask) == 0) {
        if (::getrandom(&mark, sizeof mark, 0) != sizeof mark) {
            mark = 0;
        }
    }
    return mark & mark_mask;
}

bool open_file_of_locks(user_folder const & folder, descriptor & file, struct stat & facts)
{
    for (;;) {
        switch (folder.open_file(file_of_locks, file, facts)) {
        case user_folder::found::file:
            return true;
        case user_folder::found::error:
            return false;
        default:
            break;
        }
        if (folder.make_file(file_of_locks, file, facts)) {
            return true;
        }
        if (errno != EEXIST) {
            return false;
        }
    }
}

struct flock lock_on(std::uint64_t byte, std::uint64_t count, bool shared)
{
    struct flock lock { };
    lock.l_type = shared ? F_RDLCK : F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(byte);
    lock.l_len = static_cast<off_t>(count);
    return lock;
}

void release_lock(life_lock & lock)
{
    if (void * const mapping = std::exchange(lock.mapping, nullptr)) {
        ::munmap(mapping, page);
    }
}

/// Locks a byte as long as the process's memory exists.
/// \returns false with `errno`; `EAGAIN` when another process has the lock.
bool keep_lock(user_folder const & folder, std::uint64_t byte, bool shared, bool for_child,
               life_lock & result)
{
    descriptor file;
    struct stat facts;
    if (!open_file_of_locks(folder, file, facts)) {
        errno = 0;
        return false;
    }
    struct flock lock = lock_on(byte, 1, shared);
    if (::fcntl(file.get(), F_OFD_SETLK, &lock) != 0) {
        return false;
    }
    // The mapping is never accessed: it only keeps the file open.
    void * const mapping = ::mmap(nullptr, page, PROT_NONE, MAP_SHARED, file.get(), 0);
    if (mapping == MAP_FAILED) {
        return false;
    }
    if (!for_child && ::madvise(mapping, page, MADV_DONTFORK) != 0) {
        int const reason = errno;
        ::munmap(mapping, page);
        errno = reason;
        return false;
    }
    result.mapping = mapping;
    result.file = facts;
    return true;
}

bool fail_to_register() { return errno == 0 ? false : fail_in_shared_memory(errno); }

} // namespace

std::uint64_t register_process(user_folder const & folder,
                               void (*adopt)(std::uint64_t) noexcept) noexcept
{
    uninterrupted const guard;
    registration.lock();
    bool done = true;
    if (own_lock.mapping != nullptr) {
        if (!folder.leads_to(file_of_locks, own_lock.file)) {
            // The folder was emptied: other processes look into a new file.
            life_lock fresh{nullptr, own_lock.mark, {}};
            done = keep_lock(folder, own_lock.mark, false, false, fresh) || fail_to_register();
            if (done) {
                // The old mapping stays: after a change of the user, the old folder still exists.
                own_lock = fresh;
            }
        }
    } else {
        do {
            own_lock.mark = random_mark();
            done = keep_lock(folder, own_lock.mark, false, false, own_lock);
        } while (!done && errno == EAGAIN); // another process has the same mark
        if (!done) {
            fail_to_register();
        } else {
            if (adopt != nullptr) {
                adopt(own_lock.mark);
            }
            release_lock(inherited_lock);
            inherited_lock.mark = 0;
            // Pairs with the acquire in use_named_memory and known_caller: a thread that sees the
            // mark sees the handles as `adopt` has left them.
            known_process_mark.store(own_lock.mark, std::memory_order_release);
        }
    }
    registration.unlock();
    return done ? own_lock.mark : 0;
}

std::uint32_t life_of_process(std::uint64_t mark) noexcept
{
    std::uint32_t const before = last_error();
    user_folder folder;
    descriptor file;
    struct stat facts;
    std::uint32_t life = itself_lives;
    if (folder.open(false)) {
        switch (folder.open_file(file_of_locks, file, facts)) {
        case user_folder::found::nothing:
            life = is_over;
            break;
        case user_folder::found::file:
            life = is_over;
            for (int byte = 0; byte < 2; ++byte) {
                struct flock lock = lock_on(mark + static_cast<unsigned>(byte), 1, false);
                if (::fcntl(file.get(), F_OFD_GETLK, &lock) != 0 || lock.l_type != F_UNLCK) {
                    life |= byte == 0 ? itself_lives : children_live;
                }
            }
            break;
        default:
            break;
        }
    }
    set_last_error(before);
    return life;
}

std::uint64_t own_pid_namespace() noexcept
{
    std::uint64_t known = known_namespace.load(std::memory_order_relaxed);
    if (known == 0) {
        struct stat facts;
        constexpr std::uint64_t alone = std::uint64_t{1} << 63;
        known = ::stat("/proc/self/ns/pid", &facts) == 0 ? facts.st_ino : alone | own_lock.mark;
        known_namespace.store(known, std::memory_order_relaxed);
    }
    return known;
}

// A fork that this load misses copies the table of handles later. So its child does not have the
// handle that the caller has ended before: both steps are sequentially consistent.
bool has_forked_children() noexcept
{
    std::uint32_t seen = forks.load();
    if (seen == 0) {
        return false;
    }
    std::uint64_t const mark = known_process_mark.load(std::memory_order_relaxed);
    if ((life_of_process(mark) & children_live) != 0) {
        return true;
    }
    // Fails if another thread has forked since: its child may not have had its lock yet.
    return !forks.compare_exchange_strong(seen, 0);
}

// The child has the mapping, and with it the lock, from its first moment on.
void prepare_inheritance() noexcept
{
    add_to_depth(1); // the forking thread must not be stopped while it holds the lock
    registration.lock();
    std::uint64_t const mark = own_lock.mapping != nullptr ? own_lock.mark : inherited_lock.mark;
    lock_of_fork = {nullptr, mark, {}};
    user_folder folder;
    std::uint32_t const before = last_error();
    without_cancellation const shield;
    if (mark != 0 && folder.open(false) && keep_lock(folder, mark + 1, true, true, lock_of_fork)) {
        forks.fetch_add(1);
    }
    set_last_error(before);
}

void leave_inheritance_to_child() noexcept
{
    release_lock(lock_of_fork);
    registration.unlock();
    uninterrupted const guard; // its end stops the thread if that was requested meanwhile
    add_to_depth(0xFFFFFFFF);
}

void inherit() noexcept
{
    registration.reset();
    release_lock(inherited_lock); // the parent's, inherited from its own parent
    inherited_lock = lock_of_fork;
    own_lock.mapping = nullptr; // MADV_DONTFORK: a child does not have it
    known_process_mark.store(0, std::memory_order_relaxed);
    known_namespace.store(0, std::memory_order_relaxed);
    forks.store(0, std::memory_order_relaxed);
    add_to_depth(0xFFFFFFFF);
}

} // namespace zel::platform
