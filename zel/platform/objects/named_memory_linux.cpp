// SPDX-License-Identifier: MIT
#include "zel/platform/objects/named_memory.h"

#include "zel/base/atomic.h"
#include "zel/platform/host/descriptor_linux.h"
#include "zel/platform/host/failure.h"
#include "zel/platform/host/fork_handlers.h"
#include "zel/platform/last_error.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/this_thread_linux.h"
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

// A block is a file in the user's own folder in shared memory. Who has it mapped is told by locks
// that the kernel keeps: flock(2) locks belong to the open file, a mapping keeps its file open
// after the descriptor is closed, and a fork copies the mapping. So a process takes a shared lock,
// maps the file and closes the descriptor, and the lock lasts just as long as the mapping does,
// whatever ends it. Who can lock a file for itself alone knows that nobody has it.
//
// An exclusive lock on the folder makes each call one step for all others, in all processes.
namespace zel::platform {
namespace {

constexpr char const * shared_memory = "/dev/shm";

constexpr std::uint32_t magic = 0x316C657A; // "zel1", to be changed with the layout of anything
constexpr int most_looked_at = 64; // files a call, when it looks for what others left behind

struct file_header {
    std::uint32_t magic;
    std::uint32_t kind;
    std::uint64_t size; // of the block
    std::uint32_t name_size;
    char name[longest_name];
};
constexpr std::size_t header_size = 512; // of the file in front of the block
static_assert(sizeof(file_header) <= header_size);

bool refuse(std::uint32_t error, std::string_view reason = {})
{
    if (reason.empty()) {
        set_last_error(error);
    } else {
        set_last_error(error, reason);
    }
    return false;
}

bool refuse_errno(int host_error)
{
    switch (host_error) {
    case ENOSPC:
    case EDQUOT:
    case ENOMEM:
        return refuse(error_not_enough_memory);
    case ELOOP: // a link
    case ENOTDIR:
    case EISDIR:
        return refuse(error_access_denied);
    case ENOENT:
        return refuse(error_no_system_resources, "the host has no shared memory");
    default:
        return refuse(error_from_errno(host_error));
    }
}

bool lock_file(int file, int how)
{
    int result;
    do {
        result = ::flock(file, how);
    } while (result != 0 && errno == EINTR);
    return result == 0;
}

/// \name One call at a time, and no fork meanwhile
/// A fork in the middle would copy open locks into the child, which knows nothing of them.
/// @{
constinit brief_lock calls;

void add_to_depth(std::uint32_t number)
{
    atomic<std::uint32_t> & depth = this_thread.depth;
    depth.store(depth.load(std::memory_order_relaxed) + number, std::memory_order_relaxed);
    signal_fence();
}

void before_fork() noexcept
{
    add_to_depth(1); // the thread that forks is not stopped while it has the lock
    calls.lock();
}

void after_fork_in_parent() noexcept
{
    calls.unlock();
    uninterrupted const guard; // stops at its end, if told to meanwhile
    add_to_depth(0xFFFFFFFF);
}

void after_fork_in_child() noexcept
{
    calls.reset();
    add_to_depth(0xFFFFFFFF);
}

constexpr fork_handlers around_forks{before_fork, after_fork_in_parent, after_fork_in_child};

class one_call {
public:
    one_call() noexcept { calls.lock(); }
    ~one_call() { calls.unlock(); }
    one_call(one_call const &) = delete;
    one_call & operator=(one_call const &) = delete;

    /// \returns false with the last error set when the host is out of memory.
    static bool prepare() noexcept
    {
        return add_fork_handlers(fork_place::named_memory, around_forks)
            || refuse(error_not_enough_memory);
    }

private:
    uninterrupted const guard_;
};
/// @}

/// The user's folder, locked for one call.
class folder {
public:
    folder() noexcept
    {
        std::snprintf(path_, sizeof path_, "%s/zel-%u", shared_memory,
                      static_cast<unsigned>(::geteuid()));
    }
    ~folder()
    {
        if (descriptor_.is_open()) {
            // Not left to close(): a child of another fork that is about to call exec may have
            // copied the descriptor.
            lock_file(descriptor_.get(), LOCK_UN);
        }
    }
    folder(folder const &) = delete;
    folder & operator=(folder const &) = delete;

    /// \param create  whether to make one that is missing.
    /// \returns false with the last error set; 2 when there is none and `create` is false.
    bool open(bool create) noexcept
    {
        for (;;) {
            descriptor_
                = descriptor(::open(path_, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (!descriptor_.is_open()) {
                if (errno != ENOENT) {
                    return refuse_errno(errno);
                }
                if (!create) {
                    return refuse(error_file_not_found);
                }
                if (::mkdir(path_, 0700) == 0) {
                    ::chmod(path_, 0700); // whatever the mask takes away
                } else if (errno != EEXIST) {
                    return refuse_errno(errno);
                }
                continue;
            }
            struct stat facts;
            if (::fstat(descriptor_.get(), &facts) != 0) {
                return refuse_errno(errno);
            }
            if (facts.st_uid != ::geteuid() || (facts.st_mode & 077) != 0) {
                return refuse(error_access_denied, "the folder in shared memory is not the user's");
            }
            if (!lock_file(descriptor_.get(), LOCK_EX)) {
                return refuse_errno(errno);
            }
            // The last one to leave removes it; a new one may be in its place by now.
            struct stat now;
            if (::stat(path_, &now) == 0 && now.st_ino == facts.st_ino
                && now.st_dev == facts.st_dev) {
                return true;
            }
        }
    }

    int get() const noexcept { return descriptor_.get(); }

    /// Removes the files that nobody has, and then the folder when it is empty.
    void tidy() noexcept;

private:
    int tidy_from(int start) noexcept;

    char path_[64];
    descriptor descriptor_;
};

struct file_name {
    explicit file_name(std::uint64_t const (&number)[2]) noexcept
    {
        std::snprintf(text, sizeof text, "%016llx%016llx",
                      static_cast<unsigned long long>(number[0]),
                      static_cast<unsigned long long>(number[1]));
    }
    char text[33];
};

/// The file's name is no more than a short form of the block's, which stands whole in the file.
void set_file(std::string_view name, std::uint64_t (&file)[2])
{
    std::uint64_t first = 0x9E3779B97F4A7C15;
    std::uint64_t second = 0xC2B2AE3D27D4EB4F ^ name.size();
    for (char const c : name) {
        auto const byte = static_cast<unsigned char>(c);
        first = (first ^ byte) * 0x100000001B3; // FNV-1a
        second = (second + byte + 1) * 0xD6E8FEB86659FD93;
        second ^= second >> 32;
    }
    file[0] = first ^ (first >> 29);
    file[1] = second;
}

enum class found { nothing, abandoned, held, error };

/// Opens a file of the locked folder and looks whether anybody has it.
found look_for(folder const & place, char const * name, descriptor & file)
{
    file = descriptor(::openat(place.get(), name, O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    if (!file.is_open()) {
        if (errno == ENOENT) {
            return found::nothing;
        }
        refuse_errno(errno);
        return found::error;
    }
    struct stat facts;
    if (::fstat(file.get(), &facts) != 0) {
        refuse_errno(errno);
        return found::error;
    }
    if (!S_ISREG(facts.st_mode) || facts.st_uid != ::geteuid() || (facts.st_mode & 077) != 0
        || facts.st_nlink != 1) {
        refuse(error_access_denied, "the file in shared memory is not the user's alone");
        return found::error;
    }
    if (lock_file(file.get(), LOCK_EX | LOCK_NB)) {
        return found::abandoned;
    }
    if (errno != EWOULDBLOCK) {
        refuse_errno(errno);
        return found::error;
    }
    return found::held;
}

constinit atomic<int> looked_at{0}; // how many files of others to pass over, to go on behind

void folder::tidy() noexcept
{
    int const start = looked_at.load(std::memory_order_relaxed);
    int place = tidy_from(start);
    if (place == 0 && start != 0) {
        place = tidy_from(0);
    }
    looked_at.store(place, std::memory_order_relaxed);
}

// Returns how many files are left in front of the next one to look at, 0 when that is the first.
int folder::tidy_from(int start) noexcept
{
    descriptor const listing(::openat(get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    alignas(dirent64) char area[2048];
    int left = most_looked_at;
    int place = 0;
    for (;;) {
        // Not readdir(3): that takes memory from the heap.
        ssize_t const size
            = listing.is_open() ? ::getdents64(listing.get(), area, sizeof area) : -1;
        if (size <= 0) {
            break;
        }
        for (ssize_t at = 0; at < size;) {
            auto const & entry = *reinterpret_cast<dirent64 const *>(area + at);
            at += entry.d_reclen;
            if (std::strcmp(entry.d_name, ".") == 0 || std::strcmp(entry.d_name, "..") == 0) {
                continue;
            }
            if (place < start) {
                ++place;
                continue;
            }
            if (left-- == 0) {
                return place;
            }
            descriptor file;
            if (look_for(*this, entry.d_name, file) != found::abandoned
                || ::unlinkat(get(), entry.d_name, 0) != 0) {
                ++place;
            }
        }
    }
    if (place == 0) {
        ::rmdir(path_);
    }
    return 0;
}

std::size_t file_size(std::size_t block_size) { return header_size + block_size; }

void * map_file(int file, std::size_t block_size, void * place = nullptr)
{
    void * const memory = ::mmap(place, file_size(block_size), PROT_READ | PROT_WRITE,
                                 MAP_SHARED | (place == nullptr ? 0 : MAP_FIXED), file, 0);
    return memory == MAP_FAILED ? nullptr : memory;
}

void set_result(named_memory & result, void * memory, std::size_t size,
                std::uint64_t const (&file)[2])
{
    result.block = static_cast<char *>(memory) + header_size;
    result.size = size;
    std::copy(file, file + 2, result.file);
}

bool cut_name(std::string_view & name)
{
    if (name.size() > longest_name) {
        return refuse(error_filename_exced_range);
    }
    for (std::string_view const prefix : {"Local\\", "Global\\"}) {
        if (name.starts_with(prefix)) {
            name.remove_prefix(prefix.size());
            break;
        }
    }
    return true;
}

/// Maps a file that somebody has.
bool join(std::string_view name, std::uint32_t kind, std::size_t size, descriptor const & file,
          std::uint64_t const (&number)[2], named_memory & result)
{
    file_header header{};
    if (::pread(file.get(), &header, sizeof header, 0) != sizeof header || header.magic != magic
        || header.name_size > longest_name
        || std::string_view(header.name, header.name_size) != name) {
        return refuse(error_no_system_resources, "the file in shared memory is not understood");
    }
    if (header.kind != kind) {
        return refuse(error_invalid_handle);
    }
    struct stat facts;
    if (header.size != size || ::fstat(file.get(), &facts) != 0
        || facts.st_size != static_cast<off_t>(file_size(size))) {
        return refuse(error_no_system_resources, "the file in shared memory is not understood");
    }
    // If the others have ended since, the block goes on with this process.
    void * const memory
        = lock_file(file.get(), LOCK_SH | LOCK_NB) ? map_file(file.get(), size) : nullptr;
    if (memory == nullptr) {
        return refuse_errno(errno);
    }
    set_result(result, memory, size, number);
    return true;
}

/// Makes the file, which is not there.
bool make(std::string_view name, named_memory_content const & content, folder const & place,
          std::uint64_t const (&number)[2], named_memory & result)
{
    file_name const path(number);
    descriptor const file(
        ::openat(place.get(), path.text, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file.is_open()) {
        return refuse_errno(errno);
    }
    // All of it now: a page that cannot be had later ends the process.
    int failure = ::fchmod(file.get(), 0600) != 0 ? errno : 0;
    if (failure == 0) {
        failure = ::posix_fallocate(file.get(), 0, static_cast<off_t>(file_size(content.size)));
    }
    void * memory = nullptr;
    if (failure == 0
        && (!lock_file(file.get(), LOCK_SH | LOCK_NB)
            || (memory = map_file(file.get(), content.size)) == nullptr)) {
        failure = errno;
    }
    if (memory == nullptr) {
        ::unlinkat(place.get(), path.text, 0);
        return refuse_errno(failure);
    }
    auto & header = *static_cast<file_header *>(memory);
    header.magic = magic;
    header.kind = content.kind;
    header.size = content.size;
    header.name_size = static_cast<std::uint32_t>(name.size());
    name.copy(header.name, name.size());
    set_result(result, memory, content.size, number);
    content.initialize(result.block, content.argument);
    return true;
}

void * start_of(named_memory const & memory)
{
    return static_cast<char *>(memory.block) - header_size;
}

} // namespace

bool create_named_memory(std::string_view name, named_memory_content const & content,
                         named_memory & result, bool & existed) noexcept
{
    uninterrupted const guard;
    if (!cut_name(name) || !one_call::prepare()) {
        return false;
    }
    std::uint64_t number[2];
    set_file(name, number);
    file_name const path(number);

    one_call const call;
    folder place;
    if (!place.open(true)) {
        return false;
    }
    descriptor file;
    switch (look_for(place, path.text, file)) {
    case found::held:
        if (!join(name, content.kind, content.size, file, number, result)) {
            return false;
        }
        existed = true;
        return true;
    case found::error:
        return false;
    case found::abandoned:
        ::unlinkat(place.get(), path.text, 0);
        break;
    case found::nothing:
        break;
    }
    bool const made = make(name, content, place, number, result);
    if (made) {
        existed = false;
    }
    place.tidy();
    return made;
}

bool open_named_memory(std::string_view name, std::uint32_t kind, std::size_t size,
                       named_memory & result) noexcept
{
    uninterrupted const guard;
    if (!cut_name(name) || !one_call::prepare()) {
        return false;
    }
    std::uint64_t number[2];
    set_file(name, number);
    file_name const path(number);

    one_call const call;
    folder place;
    if (!place.open(false)) {
        return false;
    }
    descriptor file;
    switch (look_for(place, path.text, file)) {
    case found::held:
        return join(name, kind, size, file, number, result);
    case found::error:
        return false;
    case found::abandoned:
        place.tidy();
        break;
    case found::nothing:
        break;
    }
    return refuse(error_file_not_found);
}

void release_named_memory(named_memory const & memory) noexcept
{
    uninterrupted const guard;
    one_call const call;
    ::munmap(start_of(memory), file_size(memory.size));
    // Without a descriptor the file stays until another call of any process finds it.
    folder place;
    descriptor file;
    file_name const path(memory.file);
    if (place.open(false) && look_for(place, path.text, file) == found::abandoned) {
        ::unlinkat(place.get(), path.text, 0);
        place.tidy();
    }
}

bool leave_named_memory(named_memory const & memory) noexcept
{
    uninterrupted const guard;
    one_call const call;
    folder place;
    file_name const path(memory.file);
    if (!place.open(false)) {
        return false;
    }
    // The same pages at the same address, by an open file that has no lock.
    descriptor file(::openat(place.get(), path.text, O_RDWR | O_NOFOLLOW | O_CLOEXEC));
    if (!file.is_open() || map_file(file.get(), memory.size, start_of(memory)) == nullptr) {
        return refuse_errno(errno);
    }
    if (look_for(place, path.text, file) == found::abandoned) {
        ::unlinkat(place.get(), path.text, 0);
        place.tidy();
    }
    return true;
}

} // namespace zel::platform
