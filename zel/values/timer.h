// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/ref_obj.h"
#include "zel/text/string.h"
#include <cstdint>
#include <iosfwd>

namespace zel {

class time;

/// A span of time in days, hours, minutes, seconds and milliseconds. It does not run.
///
/// The fields are stored as given, also negative or large ones: 24 hours and 1 day are different
/// values. The difference of two dates has hours, minutes, seconds and milliseconds in the usual
/// ranges; only its days are negative when the span is negative. A plain value: many readers or one
/// writer.
/// \code
///     zel::time const later = zel::time() + zel::timer(0, 1, 30, 0, 0);   // in an hour and a half
/// \endcode
class ZEL_API timer : public ref_obj {
public:
    /// Stores the fields unchecked.
    timer(std::int32_t days = 0, signed char hours = 0, signed char minutes = 0,
          signed char seconds = 0, std::int16_t milliseconds = 0) noexcept
        : days_(days)
        , hours_(hours)
        , minutes_(minutes)
        , seconds_(seconds)
        , milliseconds_(milliseconds)
    {
    }

    /// The span from `first` to `second`, which is `second - first`.
    timer(time const & first, time const & second) noexcept;

    /// Copies the fields, not the reference count.
    timer(timer const & other) noexcept
        : ref_obj() // the count stays with the object
    {
        copy(other);
    }
    timer & operator=(timer const & other) noexcept
    {
        copy(other);
        return *this;
    }
    ~timer() override = default;

    /// Field by field.
    bool operator==(timer const & other) const noexcept
    {
        return days_ == other.days_ && hours_ == other.hours_ && minutes_ == other.minutes_
            && seconds_ == other.seconds_ && milliseconds_ == other.milliseconds_;
    }

    /// The stored fields.
    std::int32_t get_days() const noexcept { return days_; }
    signed char get_hours() const noexcept { return hours_; }
    signed char get_minutes() const noexcept { return minutes_; }
    signed char get_seconds() const noexcept { return seconds_; }
    std::int16_t get_milliseconds() const noexcept { return milliseconds_; }

    /// Each sets one field, without a check.
    void set_days(std::int32_t days) noexcept { days_ = days; }
    void set_hours(signed char hours) noexcept { hours_ = hours; }
    void set_minutes(signed char minutes) noexcept { minutes_ = minutes; }
    void set_seconds(signed char seconds) noexcept { seconds_ = seconds; }
    void set_milliseconds(std::int16_t milliseconds) noexcept { milliseconds_ = milliseconds; }

    /// The span in ticks of 100 nanoseconds. Its whole seconds are computed in 32 bits and wrap
    /// beyond 2147483647 of them, about 68 years, in either direction.
    std::int64_t to_int64() const noexcept;

    /// For example "2 days, 3 hours, 4 minutes, 5.006 seconds"; always plural.
    string to_string() const;

    /// Writes the text of `to_string`.
    friend ZEL_API std::ostream & operator<<(std::ostream & stream, timer const & span);

protected:
    /// Copies the fields.
    void copy(timer const & other) noexcept
    {
        days_ = other.days_;
        hours_ = other.hours_;
        minutes_ = other.minutes_;
        seconds_ = other.seconds_;
        milliseconds_ = other.milliseconds_;
    }

private:
    std::int32_t days_;
    signed char hours_;
    signed char minutes_;
    signed char seconds_;
    std::int16_t milliseconds_;
};

} // namespace zel
