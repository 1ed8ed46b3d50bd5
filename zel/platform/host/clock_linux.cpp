// SPDX-License-Identifier: MIT
#include "zel/platform/host/clock.h"

#include "zel/platform/host/failure.h"
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace zel::platform {
namespace {

constexpr std::int64_t ticks_a_second = 10'000'000;

// The zone's distance from UTC in one second of the clock. Offsets change on whole seconds, so the
// second needs no look ahead, and the host's rules are read again in the next one.
struct zone_offset {
    std::int64_t second; // since 1970
    std::int64_t ticks; // to be added to UTC
    bool known;
    bool has_name; // false: the variable TZ was not set
    char name[64]; // what TZ held
};

constinit thread_local zone_offset current{};

bool is_of_this_zone(zone_offset const & offset, char const * zone)
{
    return zone == nullptr ? !offset.has_name
                           : offset.has_name && std::strcmp(offset.name, zone) == 0;
}

[[gnu::noinline]] std::int64_t read_offset(std::time_t second, char const * zone)
{
    // localtime_r may keep to the rules of its first call; only tzset looks for new ones.
    ::tzset();
    std::tm fields{};
    std::int64_t const ticks
        = ::localtime_r(&second, &fields) == nullptr ? 0 : fields.tm_gmtoff * ticks_a_second;

    std::size_t const length = zone == nullptr ? 0 : std::strlen(zone);
    current.known = length < sizeof current.name;
    if (current.known) {
        current.second = second;
        current.ticks = ticks;
        current.has_name = zone != nullptr;
        std::copy_n(zone == nullptr ? "" : zone, length + 1, current.name);
    }
    return ticks;
}

std::int64_t offset_at(std::time_t second)
{
    char const * const zone = std::getenv("TZ");
    zone_offset const & offset = current;
    if (offset.known && offset.second == second && is_of_this_zone(offset, zone)) {
        return offset.ticks;
    }
    return read_offset(second, zone);
}

timespec now()
{
    timespec moment{};
    ::clock_gettime(CLOCK_REALTIME, &moment);
    return moment;
}

// The host counts nanoseconds from 1970 in 64 bits: far inside the years that a system_time takes.
system_time to_fields(timespec const & moment, std::int64_t offset)
{
    system_time fields{1601, 1, 1, 1, 0, 0, 0, 0};
    file_time_to_system_time(
        ticks_to_1970 + moment.tv_sec * ticks_a_second + moment.tv_nsec / 100 + offset, fields);
    return fields;
}

bool set_clock(timespec const & moment)
{
    if (::clock_settime(CLOCK_REALTIME, &moment) == 0) {
        return true;
    }
    return fail(errno == EPERM ? error_privilege_not_held : error_from_errno(errno));
}

} // namespace

system_time get_system_time() noexcept
{
    timespec const moment = now();
    return to_fields(moment, 0);
}

system_time get_local_time() noexcept
{
    timespec const moment = now();
    return to_fields(moment, offset_at(moment.tv_sec));
}

bool set_system_time(system_time const & time) noexcept
{
    std::int64_t ticks = 0;
    if (!system_time_to_file_time(time, ticks)) {
        return false;
    }
    // Cut to seconds from 1601 on, where the count is not negative yet.
    return set_clock({.tv_sec = ticks / ticks_a_second - ticks_to_1970 / ticks_a_second,
                      .tv_nsec = time.milliseconds * 1'000'000L});
}

bool set_local_time(system_time const & time) noexcept
{
    std::int64_t ticks = 0;
    if (!system_time_to_file_time(time, ticks)) {
        return false;
    }
    std::tm fields{};
    fields.tm_year = time.year - 1900;
    fields.tm_mon = time.month - 1;
    fields.tm_mday = time.day;
    fields.tm_hour = time.hour;
    fields.tm_min = time.minute;
    fields.tm_sec = time.second;
    fields.tm_isdst = -1; // for the host to find out
    fields.tm_wday = -1;
    std::time_t const seconds = std::mktime(&fields);
    if (seconds == -1 && fields.tm_wday == -1) { // -1 alone is the last second of 1969
        return fail(error_invalid_parameter);
    }
    return set_clock({.tv_sec = seconds, .tv_nsec = time.milliseconds * 1'000'000L});
}

} // namespace zel::platform
