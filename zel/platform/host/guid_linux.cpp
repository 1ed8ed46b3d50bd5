// SPDX-License-Identifier: MIT
#include "zel/platform/host/guid.h"

#include "zel/base/atomic.h"
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/mman.h>
#include <sys/random.h>
#include <unistd.h>

namespace zel::platform {
namespace {

// Random bytes that this thread has fetched but not used yet. A forked child must not use its copy,
// because the parent's thread will use the same bytes.
struct supply {
    std::uint32_t process; // what `this_process` returned; 0 before the first use
    std::uint32_t used;
    unsigned char bytes[32 * sizeof(guid)];
};

constinit thread_local supply of_this_thread{};

constinit atomic<std::uint32_t> processes{0};

// A page that the kernel fills with zeros in a forked child, whatever call made the child;
// pthread_atfork would miss a plain clone(2). The exchange that stores its address (release) pairs
// with the acquire in this_process. Null until the first use; `no_mark` if the kernel is
// older than Linux 4.14, which cannot do this.
constinit atomic<atomic<std::uint32_t> *> mark_of_process{nullptr};
constinit atomic<std::uint32_t> no_mark{0};

atomic<std::uint32_t> * map_mark()
{
    auto const size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    void * const page
        = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (page == MAP_FAILED) {
        return &no_mark; // for this call only; the next one tries again
    }
    bool const is_wiped = ::madvise(page, size, MADV_WIPEONFORK) == 0;
    auto * const mark = is_wiped ? ::new (page) atomic<std::uint32_t>(0) : &no_mark;
    atomic<std::uint32_t> * first = nullptr;
    if (mark_of_process.compare_exchange_strong(first, mark, std::memory_order_acq_rel)) {
        first = mark;
    }
    if (first != page) {
        ::munmap(page, size);
    }
    return first;
}

// A number that differs from that of every process that this one descends from; 0 if the kernel
// offers no way to tell them apart.
std::uint32_t this_process()
{
    atomic<std::uint32_t> * mark = mark_of_process.load(std::memory_order_acquire);
    if (mark == nullptr) [[unlikely]] {
        mark = map_mark();
    }
    if (mark == &no_mark) {
        return 0;
    }
    std::uint32_t number = mark->load(std::memory_order_relaxed);
    if (number == 0) [[unlikely]] {
        std::uint32_t const next = processes.fetch_add(1, std::memory_order_relaxed) + 1;
        if (mark->compare_exchange_strong(number, next, std::memory_order_relaxed)) {
            number = next;
        }
    }
    return number;
}

bool read_device(unsigned char * bytes, std::size_t count)
{
    int const device = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (device < 0) {
        return false;
    }
    while (count != 0) {
        ssize_t const got = ::read(device, bytes, count);
        if (got <= 0) {
            if (got < 0 && errno == EINTR) {
                continue;
            }
            break;
        }
        bytes += got;
        count -= static_cast<std::size_t>(got);
    }
    ::close(device);
    return count == 0;
}

bool fetch(unsigned char * bytes, std::size_t count)
{
    while (count != 0) {
        ssize_t const got = ::getrandom(bytes, count, 0);
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            return read_device(bytes, count); // a sandbox may forbid the call but not the file
        }
        bytes += got;
        count -= static_cast<std::size_t>(got);
    }
    return true;
}

[[gnu::noinline]] bool refill(supply & from, std::uint32_t process)
{
    from.process = 0;
    if (!fetch(from.bytes, sizeof from.bytes)) {
        return false;
    }
    from.process = process;
    from.used = 0;
    return true;
}

} // namespace

bool co_create_guid(guid & id) noexcept
{
    guid fresh;
    std::uint32_t const process = this_process();
    supply & from = of_this_thread;
    if (process == 0) {
        unsigned char bytes[sizeof fresh];
        if (!fetch(bytes, sizeof bytes)) {
            return false;
        }
        std::memcpy(&fresh, bytes, sizeof fresh);
    } else {
        if ((from.process != process || from.used == sizeof from.bytes) && !refill(from, process)) {
            return false;
        }
        std::memcpy(&fresh, from.bytes + from.used, sizeof fresh);
        from.used += sizeof fresh;
    }
    fresh.data3 = static_cast<std::uint16_t>((fresh.data3 & 0x0FFF) | 0x4000); // the version
    fresh.data4[0] = static_cast<std::uint8_t>((fresh.data4[0] & 0x3F) | 0x80); // the variant
    id = fresh;
    return true;
}

} // namespace zel::platform
