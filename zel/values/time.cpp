// SPDX-License-Identifier: MIT
#include "zel/values/time.h"

#include "zel/platform/host/calendar.h"
#include "zel/platform/host/clock.h"
#include <algorithm>
#include <cstring>
#include <ostream>
#include <span>

namespace zel {

constinit unsigned char const time::ms_month_days[13]
    = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
constinit char const * const time::ms_month_names[13]
    = {nullptr, "January", "February",  "March",   "April",    "May",     "June",
       "July",  "August",  "September", "October", "November", "December"};
constinit char const * const time::ms_day_names[7]
    = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};

namespace {

platform::system_time to_platform(time const & value)
{
    // Values beyond 16 bits become 0xFFFF, which is not a valid month or weekday either.
    auto const number = [](std::uint32_t field) {
        return static_cast<std::uint16_t>(std::min<std::uint32_t>(field, 0xFFFF));
    };
    return {.year = value.get_year(),
            .month = number(value.get_month()),
            .day_of_week = number(value.get_day_of_week()),
            .day = value.get_day(),
            .hour = value.get_hour(),
            .minute = value.get_minute(),
            .second = value.get_second(),
            .milliseconds = value.get_milliseconds()};
}

constexpr platform::system_time start_of_1601{1601, 1, time::monday, 1, 0, 0, 0, 0};

void set_fields(time & value, platform::system_time const & fields)
{
    auto const byte = [](std::uint16_t field) { return static_cast<unsigned char>(field); };
    value.set_year(fields.year);
    value.set_month(static_cast<time::month>(fields.month));
    value.set_day_of_week(static_cast<time::day_of_week>(fields.day_of_week));
    value.set_day(byte(fields.day));
    value.set_hour(byte(fields.hour));
    value.set_minute(byte(fields.minute));
    value.set_second(byte(fields.second));
    value.set_milliseconds(fields.milliseconds);
}

// Days before each month in a year without a leap day. Months above 12 count as 13, which follows
// the whole year; no days precede months 0 and 1.
constexpr std::int32_t days_before_month[14]
    = {0, 0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};

// Days since the start of year 0, which has 366 of them.
inline std::int32_t day_number(time const & value)
{
    std::uint32_t const year = value.get_year();
    std::uint32_t const month = std::min<std::uint32_t>(value.get_month(), 13);
    // Leap days before the year, counted from 400 years earlier so that no number is negative.
    std::uint32_t const before = year + 399;
    std::uint32_t const century = before / 100;
    std::uint32_t const days = 365 * year + before / 4 - century + century / 4 - 96;
    // A year divisible by 100 is a leap year if it is divisible by 400; it is then enough to check
    // 16.
    bool const starts_century = before - century * 100 == 99;
    bool const has_leap_day = month > 2 && (year & (starts_century ? 15U : 3U)) == 0;
    return static_cast<std::int32_t>(days) + days_before_month[month] + has_leap_day
        + value.get_day() - 1;
}

// Subtracts one field with the wrap-around of `Field`. `borrow` is 0 or -1: it is applied to this
// field and then set for the next one.
template <typename Field>
Field subtract(std::int32_t left, std::int32_t right, std::int32_t & borrow, std::int32_t base)
{
    auto const difference = static_cast<Field>(left - right + borrow);
    borrow = difference < 0 ? -1 : 0;
    return static_cast<Field>(difference + (borrow & base));
}

char * put(char * end, char const * text)
{
    std::size_t const length = std::strlen(text);
    std::memcpy(end, text, length);
    return end + length;
}

// Writes a number of at most five digits, padded with zeros to `width`.
char * put(char * end, std::uint32_t number, std::uint32_t width)
{
    std::uint32_t const digits
        = 1U + (number >= 10) + (number >= 100) + (number >= 1000) + (number >= 10'000);
    std::uint32_t const length = std::max(digits, width);
    for (std::uint32_t i = length; i-- != 0; number /= 10) {
        end[i] = static_cast<char>('0' + number % 10);
    }
    return end + length;
}

char const * name_of(std::uint32_t index, std::span<char const * const> names)
{
    return index < names.size() && names[index] != nullptr ? names[index] : "Unknown";
}

} // namespace

time::time(time_enum source) noexcept
{
    if (source == local_time) {
        read_local();
    } else if (source == system_time) {
        read_system();
    } else {
        set_fields(*this, start_of_1601);
    }
}

time::time(std::int64_t ticks) noexcept
{
    platform::system_time fields = start_of_1601;
    platform::file_time_to_system_time(ticks, fields);
    set_fields(*this, fields);
}

void time::read_system() noexcept { set_fields(*this, platform::get_system_time()); }

void time::read_local() noexcept { set_fields(*this, platform::get_local_time()); }

bool time::write_system() const noexcept { return platform::set_system_time(to_platform(*this)); }

bool time::write_local() const noexcept { return platform::set_local_time(to_platform(*this)); }

std::int64_t time::to_100nanosecs() const noexcept
{
    std::int64_t ticks = 0;
    platform::system_time_to_file_time(to_platform(*this), ticks);
    return ticks;
}

string time::to_string() const
{
    char text[64]; // the longest has 46 bytes
    char * end = put(text, name_of(day_of_week_, ms_day_names));
    *end++ = ' ';
    end = put(end, name_of(month_, ms_month_names));
    *end++ = ' ';
    end = put(end, day_, 2);
    *end++ = ' ';
    end = put(end, hour_, 2);
    *end++ = ':';
    end = put(end, minute_, 2);
    *end++ = ':';
    end = put(end, second_, 2);
    *end++ = '.';
    end = put(end, milliseconds_, 3);
    end = put(end, "  ");
    end = put(end, year_, 1);
    return string(text, static_cast<unsigned>(end - text));
}

// Added as unsigned numbers: a sum that overflows 64 bits becomes a negative count, which is not a
// valid date.
time operator+(time const & value, timer const & span) noexcept
{
    return time(static_cast<std::int64_t>(static_cast<std::uint64_t>(value.to_100nanosecs())
                                          + static_cast<std::uint64_t>(span.to_int64())));
}

time operator-(time const & value, timer const & span) noexcept
{
    return time(static_cast<std::int64_t>(static_cast<std::uint64_t>(value.to_100nanosecs())
                                          - static_cast<std::uint64_t>(span.to_int64())));
}

time & time::operator+=(timer const & span) noexcept { return *this = *this + span; }

time & time::operator-=(timer const & span) noexcept { return *this = *this - span; }

timer operator-(time const & left, time const & right) noexcept
{
    std::int32_t const days = day_number(left) - day_number(right);
    std::int32_t borrow = 0;
    auto const milliseconds
        = subtract<std::int16_t>(left.get_milliseconds(), right.get_milliseconds(), borrow, 1000);
    auto const seconds = subtract<signed char>(left.get_second(), right.get_second(), borrow, 60);
    auto const minutes = subtract<signed char>(left.get_minute(), right.get_minute(), borrow, 60);
    auto const hours = subtract<signed char>(left.get_hour(), right.get_hour(), borrow, 24);
    return timer(days + borrow, hours, minutes, seconds, milliseconds);
}

std::ostream & operator<<(std::ostream & stream, time const & value)
{
    return stream << value.to_string();
}

} // namespace zel
