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

// The offset from UTC, cached for one second only, so that changed rules take effect in the next
// second.
struct zone_offset {
    std::int64_t second; // since 1970
    std::int64_t seconds; // to be added to UTC
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
    // localtime_r may keep the rules of its first call; only tzset reads new ones.
    ::tzset();
    std::tm fields{};
    std::int64_t const seconds = ::localtime_r(&second, &fields) == nullptr ? 0 : fields.tm_gmtoff;

    std::size_t const length = zone == nullptr ? 0 : std::strlen(zone);
    current.known = length < sizeof current.name;
    if (current.known) {
        current.second = second;
        current.seconds = seconds;
        current.has_name = zone != nullptr;
        std::copy_n(zone == nullptr ? "" : zone, length + 1, current.name);
    }
    return seconds;
}

std::int64_t offset_at(std::time_t second)
{
    char const * const zone = std::getenv("TZ");
    zone_offset const & offset = current;
    if (offset.known && offset.second == second && is_of_this_zone(offset, zone)) {
        return offset.seconds;
    }
    return read_offset(second, zone);
}

// The last second that this thread asked for, and its fields. Programs ask many times within a
// second, and computing the date takes as long as reading the clock.
struct known_moment {
    std::uint64_t second; // since the start of 1601
    std::uint32_t day; // likewise
    system_time fields; // the milliseconds are those of the last answer
};
[[gnu::tls_model("initial-exec")]] constinit thread_local known_moment last_moment{
    0, 0, {1601, 1, 1, 1, 0, 0, 0, 0}};

[[gnu::noinline]] void move_on(known_moment & known, std::uint64_t second)
{
    constexpr std::uint32_t seconds_a_day = 86'400;
    auto const day = static_cast<std::uint32_t>(second / seconds_a_day);
    if (known.day != day) {
        known.day = day;
        set_date(known.fields, day);
    }
    known.second = second;
    set_time_of_day(known.fields, static_cast<std::uint32_t>(second % seconds_a_day), 0);
}

timespec now()
{
    timespec moment;
    ::clock_gettime(CLOCK_REALTIME, &moment);
    return moment;
}

// The clock counts nanoseconds from 1970 in 64 bits, which always lies within the years of a
// system_time.
system_time const & fields_of(timespec const & moment, std::int64_t offset)
{
    constexpr std::int64_t seconds_to_1970 = ticks_to_1970 / ticks_a_second;
    auto const second = static_cast<std::uint64_t>(seconds_to_1970 + moment.tv_sec + offset);
    known_moment & known = last_moment;
    if (known.second != second) [[unlikely]] {
        move_on(known, second);
    }
    known.fields.milliseconds
        = static_cast<std::uint16_t>(static_cast<std::uint32_t>(moment.tv_nsec) / 1'000'000);
    return known.fields;
}

bool set_clock(timespec const & moment)
{
    if (::clock_settime(CLOCK_REALTIME, &moment) == 0) {
        return true;
    }
    return fail(errno == EPERM ? error_privilege_not_held : error_from_errno(errno));
}

} // namespace

system_time const & get_system_time() noexcept { return fields_of(now(), 0); }

system_time const & get_local_time() noexcept
{
    timespec const moment = now();
    return fields_of(moment, offset_at(moment.tv_sec));
}

bool set_system_time(system_time const & time) noexcept
{
    std::int64_t ticks = 0;
    if (!system_time_to_file_time(time, ticks)) {
        return false;
    }
    // Divide before subtracting, while both numbers are positive, so that both divisions round
    // down.
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
    fields.tm_isdst = -1; // the host determines it
    fields.tm_wday = -1;
    std::time_t const seconds = std::mktime(&fields);
    if (seconds == -1 && fields.tm_wday == -1) { // -1 with a weekday set is the last second of 1969
        return fail(error_invalid_parameter);
    }
    return set_clock({.tv_sec = seconds, .tv_nsec = time.milliseconds * 1'000'000L});
}

} // namespace zel::platform
