// SPDX-License-Identifier: MIT
#include "zel/values/timer.h"

#include "zel/values/time.h"
#include <cstdio>
#include <ostream>

namespace zel {

timer::timer(time const & first, time const & second) noexcept
    : timer(second - first)
{
}

std::int64_t timer::to_int64() const noexcept
{
    auto const wide = [](std::int32_t field) { return static_cast<std::uint32_t>(field); };
    std::uint32_t const seconds
        = ((wide(days_) * 24 + wide(hours_)) * 60 + wide(minutes_)) * 60 + wide(seconds_);
    return (std::int64_t(static_cast<std::int32_t>(seconds)) * 1000 + milliseconds_) * 10'000;
}

string timer::to_string() const
{
    char text[96]; // the longest has 63 bytes
    int const length
        = std::snprintf(text, sizeof text, "%d days, %d hours, %d minutes, %d.%.3d seconds", days_,
                        hours_, minutes_, seconds_, milliseconds_);
    return string(text, static_cast<unsigned>(length));
}

std::ostream & operator<<(std::ostream & stream, timer const & span)
{
    return stream << span.to_string();
}

} // namespace zel
