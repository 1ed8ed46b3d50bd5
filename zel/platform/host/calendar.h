// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace zel::platform {

/// A date and a time of day in the proleptic Gregorian calendar, in the platform's layout.
struct system_time {
    std::uint16_t year; // 1601 to 30827
    std::uint16_t month; // from 1
    std::uint16_t day_of_week; // from 0, which is Sunday
    std::uint16_t day; // from 1
    std::uint16_t hour;
    std::uint16_t minute;
    std::uint16_t second; // to 59: there are no leap seconds
    std::uint16_t milliseconds;
};

/// Ticks of 100 nanoseconds from the start of 1601 to the start of 1970.
inline constexpr std::int64_t ticks_to_1970 = 116'444'736'000'000'000;

/// Sets the date and the day of the week.
/// \param days  since the start of 1601, up to the year 30827.
void set_date(system_time & time, std::uint32_t days) noexcept;

/// Sets the time of day.
/// \param seconds  since midnight, below 86,400.
constexpr void set_time_of_day(system_time & time, std::uint32_t seconds,
                               std::uint32_t milliseconds) noexcept
{
    std::uint32_t const minutes = seconds / 60;
    time.hour = static_cast<std::uint16_t>(seconds / 3600);
    time.minute = static_cast<std::uint16_t>(minutes % 60);
    time.second = static_cast<std::uint16_t>(seconds % 60);
    time.milliseconds = static_cast<std::uint16_t>(milliseconds);
}

/// Counts the ticks of 100 nanoseconds from the start of 1601. The day of the week is ignored.
/// \returns false with `error_invalid_parameter`, and `ticks` unchanged, when the fields are no
///          valid moment of the years 1601 to 30827.
bool system_time_to_file_time(system_time const & time, std::int64_t & ticks) noexcept;

/// The reverse; it also sets the day of the week. Fractions of a millisecond are cut off.
/// \returns false with `error_invalid_parameter`, and `time` unchanged, for a negative count or one
///          beyond the year 30827.
bool file_time_to_system_time(std::int64_t ticks, system_time & time) noexcept;

} // namespace zel::platform
