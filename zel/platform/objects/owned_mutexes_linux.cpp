// SPDX-License-Identifier: MIT
#include "zel/platform/objects/owned_mutexes_linux.h"

#include "zel/platform/objects/named_mutex_linux.h"
#include "zel/platform/objects/unnamed_mutex_linux.h"
#include <cerrno>

#include <sys/syscall.h>
#include <unistd.h>

namespace zel::platform {
namespace {

// The kernel follows 2,048 entries of a thread's list, among them those of the C library's locks.
constexpr std::uint32_t most_on_a_list = 2'000;

void abandon_owned_mutexes(bool is_orderly) noexcept
{
    bool const too_many = this_thread.holds.load(std::memory_order_relaxed) > most_on_a_list;
    abandon_unnamed_mutexes(this_thread.id);
    if (is_orderly && too_many) {
        abandon_named_mutexes();
    }
}

} // namespace

std::uint32_t make_owner() noexcept
{
    return watch_owner(abandon_owned_mutexes) ? this_thread.owner_number : 0;
}

bool exists_in_process(std::uint32_t thread) noexcept
{
    return ::syscall(SYS_tgkill, ::getpid(), thread, 0) == 0 || errno != ESRCH;
}

// sched_getscheduler changes nothing and accepts the number of any thread of the namespace.
bool exists_in_namespace(std::uint32_t thread) noexcept
{
    return ::syscall(SYS_sched_getscheduler, thread) >= 0 || errno != ESRCH;
}

} // namespace zel::platform
