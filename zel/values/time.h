// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/ref_obj.h"
#include "zel/text/string.h"
#include "zel/values/timer.h"
#include <cstdint>
#include <iosfwd>

namespace zel {

/// A date of the Gregorian calendar and a time of day, to the millisecond.
///
/// It has no time zone: whether it is UTC or local time depends on how it was read. Neither the
/// constructors nor the setters check their values, and setting a date does not change the day of
/// the week. Operations that count ticks (`to_100nanosecs`, adding and subtracting a `timer`)
/// support the years 1601 to 30827; for fields that are no valid date they give the result for 0
/// ticks, 1 January 1601. A plain value: many readers or one writer; any thread may read the
/// clocks.
/// \code
///     zel::time const now;                                            // local time
///     zel::time const release(1, zel::time::march, 2027, 9, 0, 0, 0);
///     std::int32_t const days_left = (release - now).get_days();
/// \endcode
class ZEL_API time : public ref_obj {
public:
    /// Which clock is read.
    enum time_enum : std::uint32_t { local_time = 0, system_time = 1 };

    /// A number from 1; 0 in a date that has none.
    enum month : std::uint32_t {
        january = 1,
        february,
        march,
        april,
        may,
        june,
        july,
        august,
        september,
        october,
        november,
        december,
    };

    /// A number from 0.
    enum day_of_week : std::uint32_t {
        sunday,
        monday,
        tuesday,
        wednesday,
        thursday,
        friday,
        saturday,
        unknown_day, // of a date that was built from its parts
    };

    /// Days of a month in a year without a leap day, and English names. The index is the `month`,
    /// whose entry 0 is 0 or null, or the `day_of_week`.
    static unsigned char const ms_month_days[13];
    static char const * const ms_month_names[13];
    static char const * const ms_day_names[7];

    /// Reads the clock; an unknown `source` gives 1 January 1601.
    time(time_enum source = local_time) noexcept;

    /// Stores the fields unchecked; the day of the week is `unknown_day`.
    time(unsigned char day, month mon, std::uint16_t year, unsigned char hour, unsigned char minute,
         unsigned char second, std::uint16_t milliseconds) noexcept
        : year_(year)
        , month_(mon)
        , day_of_week_(unknown_day)
        , day_(day)
        , hour_(hour)
        , minute_(minute)
        , second_(second)
        , milliseconds_(milliseconds)
    {
    }

    /// The date of a number of ticks as `to_100nanosecs` returns it, with its day of the week. A
    /// negative number and one beyond the year 30827 give 1 January 1601.
    time(std::int64_t ticks) noexcept;

    /// Copies the fields, not the reference count.
    time(time const & other) noexcept
        : ref_obj() // the count stays with the object
    {
        copy(other);
    }
    time & operator=(time const & other) noexcept
    {
        copy(other);
        return *this;
    }
    ~time() override = default;

    /// The stored fields.
    std::uint16_t get_year() const noexcept { return year_; }
    month get_month() const noexcept { return month_; }
    day_of_week get_day_of_week() const noexcept { return day_of_week_; }
    unsigned char get_day() const noexcept { return day_; }
    unsigned char get_hour() const noexcept { return hour_; }
    unsigned char get_minute() const noexcept { return minute_; }
    unsigned char get_second() const noexcept { return second_; }
    std::uint16_t get_milliseconds() const noexcept { return milliseconds_; }

    /// Each sets one field, without a check; the day of the week does not change.
    void set_year(std::uint16_t year) noexcept { year_ = year; }
    void set_month(month mon) noexcept { month_ = mon; }
    void set_day_of_week(day_of_week day) noexcept { day_of_week_ = day; }
    void set_day(unsigned char day) noexcept { day_ = day; }
    void set_hour(unsigned char hour) noexcept { hour_ = hour; }
    void set_minute(unsigned char minute) noexcept { minute_ = minute; }
    void set_second(unsigned char second) noexcept { second_ = second; }
    void set_milliseconds(std::uint16_t milliseconds) noexcept { milliseconds_ = milliseconds; }

    /// Compares all eight fields, including the day of the week: a date that was built from its
    /// parts differs from the same date read from the clock.
    bool operator==(time const & other) const noexcept
    {
        return year_ == other.year_ && month_ == other.month_ && day_of_week_ == other.day_of_week_
            && day_ == other.day_ && hour_ == other.hour_ && minute_ == other.minute_
            && second_ == other.second_ && milliseconds_ == other.milliseconds_;
    }

    /// Read the clock as UTC, or as local time. The time zone comes from `TZ`, else from the host's
    /// configuration. A change of `TZ` takes effect at the next call, a new configuration within a
    /// second.
    void read_system() noexcept;
    void read_local() noexcept;

    /// Set the host's clock from UTC or local time. The day of the week is ignored.
    /// \returns true if the clock was set. False, with the reason in the last error, when the
    ///          fields are no valid date, when the host's clock cannot hold it, or when the process
    ///          may not set the clock.
    bool write_system() const noexcept;
    bool write_local() const noexcept;

    /// The ticks of 100 nanoseconds since the start of 1601; 0 when the fields are no valid date of
    /// the years 1601 to 30827.
    std::int64_t to_100nanosecs() const noexcept;

    /// For example "Thursday March 01 09:05:07.042  2007". A weekday or a month without a name is
    /// "Unknown".
    string to_string() const;

    /// Move the date by a span, by counting ticks; this also sets the day of the week.
    time & operator+=(timer const & span) noexcept;
    time & operator-=(timer const & span) noexcept;

    /// Writes the text of `to_string`.
    friend ZEL_API std::ostream & operator<<(std::ostream & stream, time const & value);

protected:
    /// Copies the fields.
    void copy(time const & other) noexcept
    {
        year_ = other.year_;
        month_ = other.month_;
        day_of_week_ = other.day_of_week_;
        day_ = other.day_;
        hour_ = other.hour_;
        minute_ = other.minute_;
        second_ = other.second_;
        milliseconds_ = other.milliseconds_;
    }

private:
    std::uint16_t year_;
    month month_;
    day_of_week day_of_week_;
    unsigned char day_;
    unsigned char hour_;
    unsigned char minute_;
    unsigned char second_;
    std::uint16_t milliseconds_;
};

/// The span from `right` to `left`, computed from the fields in the calendar of all years from 0
/// on; the day of the week is ignored. If the span is negative, only its days are negative: 10:00
/// minus 12:00 of one day is -1 days and 22 hours.
ZEL_API timer operator-(time const & left, time const & right) noexcept;

ZEL_API time operator-(time const & value, timer const & span) noexcept;
ZEL_API time operator+(time const & value, timer const & span) noexcept;

} // namespace zel
