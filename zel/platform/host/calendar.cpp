// SPDX-License-Identifier: MIT
#include "zel/platform/host/calendar.h"

#include "zel/platform/host/failure.h"

namespace zel::platform {
namespace {

constexpr std::int64_t ticks_a_millisecond = 10'000;
constexpr std::uint32_t milliseconds_a_day = 86'400'000;
constexpr unsigned first_year = 1601;
constexpr unsigned last_year = 30827;

constexpr bool is_leap_year(unsigned year)
{
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

constexpr unsigned days_of_month(unsigned year, unsigned month)
{
    // Months alternate between 31 and 30 days; the alternation starts again in August.
    return month == 2 ? 28U + is_leap_year(year) : 30U + ((month + month / 8) & 1);
}

// Days since the first of March of year 0. Years are counted from March, so that the leap day is
// the last day of a year. March to July and August to December have 153 days each, so (153 m + 2) /
// 5 days precede month m, with m = 0 for March.
constexpr std::uint32_t days_from_march_0(unsigned year, unsigned month, unsigned day)
{
    std::uint32_t const y = month <= 2 ? year - 1 : year;
    std::uint32_t const m = month <= 2 ? month + 9 : month - 3;
    return y * 365 + y / 4 - y / 100 + y / 400 + (153 * m + 2) / 5 + day - 1;
}

constexpr std::uint32_t start_of_1601 = days_from_march_0(first_year, 1, 1);
constexpr std::int64_t end_of_time
    = std::int64_t(days_from_march_0(last_year + 1, 1, 1) - start_of_1601) * milliseconds_a_day
    * ticks_a_millisecond;
static_assert(std::int64_t(days_from_march_0(1970, 1, 1) - start_of_1601) * milliseconds_a_day
                  * ticks_a_millisecond
              == ticks_to_1970);

} // namespace

bool system_time_to_file_time(system_time const & time, std::int64_t & ticks) noexcept
{
    if (time.year < first_year || time.year > last_year || time.month < 1 || time.month > 12
        || time.day < 1 || time.day > days_of_month(time.year, time.month) || time.hour > 23
        || time.minute > 59 || time.second > 59 || time.milliseconds > 999) {
        return fail(error_invalid_parameter);
    }
    std::uint32_t const days = days_from_march_0(time.year, time.month, time.day) - start_of_1601;
    std::uint32_t const seconds = (time.hour * 60U + time.minute) * 60U + time.second;
    ticks = (std::int64_t(days) * milliseconds_a_day + seconds * 1000U + time.milliseconds)
        * ticks_a_millisecond;
    return true;
}

void set_date(system_time & time, std::uint32_t days) noexcept
{
    // First centuries of 36,524.25 days, then years of 365.25 days within the century. Both are
    // counted in quarters of a day, so that the leap days fall where the division rounds up.
    std::uint32_t const quarters = (days + start_of_1601) * 4 + 3;
    std::uint32_t const century = quarters / 146'097;
    std::uint32_t const of_century = quarters % 146'097 | 3;
    std::uint32_t const year = century * 100 + of_century / 1461;
    std::uint32_t const of_year = of_century % 1461 / 4;
    std::uint32_t const month = (5 * of_year + 2) / 153; // from March
    bool const next_year = month >= 10;

    auto const field = [](std::uint32_t value) { return static_cast<std::uint16_t>(value); };
    time.year = field(year + next_year);
    time.month = field(next_year ? month - 9 : month + 3);
    time.day_of_week = field((days + 1) % 7); // 1 January 1601 was a Monday
    time.day = field(of_year - (153 * month + 2) / 5 + 1);
}

bool file_time_to_system_time(std::int64_t ticks, system_time & time) noexcept
{
    if (ticks < 0 || ticks >= end_of_time) {
        set_last_error(error_invalid_parameter);
        return false;
    }
    auto const milliseconds = static_cast<std::uint64_t>(ticks / ticks_a_millisecond);
    set_date(time, static_cast<std::uint32_t>(milliseconds / milliseconds_a_day));
    auto const of_day = static_cast<std::uint32_t>(milliseconds % milliseconds_a_day);
    set_time_of_day(time, of_day / 1000, of_day % 1000);
    return true;
}

} // namespace zel::platform
