// SPDX-License-Identifier: MIT
#include "zel/platform/host/failure.h"
#include "zel/platform/queues/queue.h"
#include <cstdint>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

// The bare system calls are used because the C library's write, read and close are cancellation
// points: nothing here may be interrupted midway.
namespace zel::platform {

void update_descriptor(queue & it) noexcept
{
    bool const waiting = it.messages.size() != 0 || it.quit;
    if (it.descriptor < 0 || it.readable == waiting) {
        return;
    }
    // Neither call can block: the counter alternates between 0 and 1.
    std::uint64_t count = 1;
    if (::syscall(waiting ? SYS_write : SYS_read, it.descriptor, &count, sizeof count)
        == sizeof count) {
        it.readable = waiting;
    }
}

void close_descriptor(queue & it) noexcept
{
    if (it.descriptor >= 0) {
        ::syscall(SYS_close, it.descriptor);
        it.descriptor = -1;
    }
    it.readable = false;
}

void renew_descriptor(queue & it) noexcept
{
    if (it.descriptor < 0) {
        return;
    }
    int const renewed = ::eventfd(it.readable ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (renewed < 0 || ::dup3(renewed, it.descriptor, O_CLOEXEC) < 0) {
        close_descriptor(it);
    }
    if (renewed >= 0) {
        ::syscall(SYS_close, renewed);
    }
}

int message_queue_descriptor() noexcept
{
    queue * const own = own_queue();
    if (own == nullptr) {
        return -1;
    }
    held const lock(own->lock);
    if (own->descriptor < 0) {
        own->descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (own->descriptor < 0) {
            fail_with_errno();
            return -1;
        }
        own->readable = false;
        update_descriptor(*own);
    }
    return own->descriptor;
}

} // namespace zel::platform
