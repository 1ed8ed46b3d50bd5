// SPDX-License-Identifier: MIT
#include "zel/platform/threads/thread_priorities_linux.h"

#include "zel/platform/last_error.h"
#include "zel/platform/threads/thread_ends_linux.h"
#include "zel/platform/threads/threads.h"
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>

#include <sys/resource.h>

namespace zel::platform {
namespace {

// The platform's priorities in rising order and the host's nice values for them.
struct priority_row {
    std::int32_t priority;
    int nice;
};
constexpr priority_row priorities[]
    = {{-15, 19}, {-2, 10}, {-1, 5}, {0, 0}, {1, -5}, {2, -10}, {15, -20}};

// The nice value of one thread; the host has one for each thread.
bool read_nice_value(std::uint32_t id, int & value)
{
    errno = 0;
    value = ::getpriority(PRIO_PROCESS, id);
    return value != -1 || errno == 0;
}

} // namespace

void begin_at_normal_priority() noexcept
{
    int const saved = errno;
    int inherited = 0;
    if (read_nice_value(0, inherited) && inherited != 0 && ::setpriority(PRIO_PROCESS, 0, 0) != 0) {
        // The highest priority that this user may set: getrlimit(2) reports the limit as 20 minus
        // the nice value.
        rlimit limit{};
        if (::getrlimit(RLIMIT_NICE, &limit) == 0 && limit.rlim_cur <= 40) {
            int const lowest = 20 - static_cast<int>(limit.rlim_cur);
            if (lowest < inherited) {
                ::setpriority(PRIO_PROCESS, 0, lowest);
            }
        }
    }
    errno = saved;
}

std::int32_t get_thread_priority(void * handle) noexcept
{
    uninterrupted const guard;
    handle_slot * const slot = pinned_thread(handle);
    if (slot == nullptr) {
        return priority_error;
    }
    thread_record const & record = record_of(*slot);
    int nice = 0;
    bool const failed
        = !read_nice_value(record.id.load(std::memory_order_relaxed), nice) || has_run(record);
    release_thread(*slot);
    if (failed) {
        set_last_error(error_access_denied);
        return priority_error;
    }
    // Another program may have set a different value: the nearest one counts.
    auto const * const nearest
        = std::min_element(std::begin(priorities), std::end(priorities),
                           [=](priority_row const & one, priority_row const & other) {
                               return std::abs(one.nice - nice) < std::abs(other.nice - nice);
                           });
    return nearest->priority;
}

bool set_thread_priority(void * handle, std::int32_t priority) noexcept
{
    uninterrupted const guard;
    handle_slot * const slot = pinned_thread(handle);
    if (slot == nullptr) {
        return false;
    }
    auto const * const row
        = std::find_if(std::begin(priorities), std::end(priorities),
                       [&](priority_row const & each) { return each.priority == priority; });
    std::uint32_t error = error_success;
    thread_record const & record = record_of(*slot);
    if (row == std::end(priorities)) {
        error = error_invalid_parameter;
    } else if (has_run(record)
               || ::setpriority(PRIO_PROCESS, record.id.load(std::memory_order_relaxed), row->nice)
                   != 0) {
        error = error_access_denied;
    }
    release_thread(*slot);
    if (error != error_success) {
        set_last_error(error);
    }
    return error == error_success;
}

} // namespace zel::platform
