// SPDX-License-Identifier: MIT
// Dates and spans against a calendar that counts one month after the other.
#include "zel/values/time.h"
#include "zel/values/timer.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

using zel::timer;
using moment = zel::time; // the C library has a `time` of its own

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

constexpr std::int64_t ticks_a_day = 864'000'000'000;

bool is_leap(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

int days_of(int year, int month)
{
    int const lengths[] = {31, is_leap(year) ? 29 : 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return lengths[month - 1];
}

// Days between the start of year 0 and that of another one.
std::int64_t days_before(int year)
{
    static std::vector<std::int64_t> const days = [] {
        std::vector<std::int64_t> sums{0};
        for (int y = 0; y <= 65'535; ++y) {
            sums.push_back(sums.back() + (is_leap(y) ? 366 : 365));
        }
        return sums;
    }();
    return days[static_cast<std::size_t>(year)];
}

// Days since the start of year 0, months above 12 being behind the year.
std::int64_t day_number(moment const & value)
{
    int const year = value.get_year();
    std::int64_t days = days_before(year) + value.get_day() - 1;
    auto const month = static_cast<std::uint32_t>(value.get_month());
    for (int m = 1; m < static_cast<int>(std::min<std::uint32_t>(month, 13)); ++m) {
        days += days_of(year, m);
    }
    return days;
}

bool is_date(moment const & value)
{
    int const year = value.get_year();
    auto const month = static_cast<std::uint32_t>(value.get_month());
    return year >= 1601 && year <= 30827 && month >= 1 && month <= 12 && value.get_day() >= 1
        && value.get_day() <= days_of(year, static_cast<int>(month)) && value.get_hour() < 24
        && value.get_minute() < 60 && value.get_second() < 60 && value.get_milliseconds() < 1000;
}

std::int64_t milliseconds_of_day(moment const & value)
{
    return ((value.get_hour() * 60LL + value.get_minute()) * 60 + value.get_second()) * 1000
        + value.get_milliseconds();
}

template <typename T> T take(std::uint8_t const *& data, std::size_t & size)
{
    T value{};
    std::size_t const count = std::min(size, sizeof value);
    std::memcpy(&value, data, count);
    data += count;
    size -= count;
    return value;
}

moment take_moment(std::uint8_t const *& data, std::size_t & size)
{
    auto const fields = take<std::uint64_t>(data, size);
    auto const part = [&](int shift, unsigned bits, unsigned limit) {
        auto const value = static_cast<unsigned>(fields >> shift & ((1U << bits) - 1));
        return fields >> 63 != 0 ? value : value % limit; // half of them near to dates
    };
    return moment(
        static_cast<unsigned char>(part(0, 8, 33)), static_cast<moment::month>(part(8, 5, 14)),
        static_cast<std::uint16_t>(part(13, 15, 30829)),
        static_cast<unsigned char>(part(28, 8, 25)), static_cast<unsigned char>(part(36, 8, 61)),
        static_cast<unsigned char>(part(44, 8, 61)),
        static_cast<std::uint16_t>(part(52, 11, 1001)));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    moment const left = take_moment(data, size);
    moment const right = take_moment(data, size);
    std::int64_t const ticks = take<std::int64_t>(data, size);

    std::int64_t const days_to_1601 = days_before(1601);
    std::int64_t const counted = left.to_100nanosecs();
    require(counted
            == (is_date(left) ? (day_number(left) - days_to_1601) * ticks_a_day
                        + milliseconds_of_day(left) * 10'000
                              : 0));

    // Both ways, to the millisecond.
    moment const made(ticks);
    require(is_date(made));
    bool const in_range = ticks >= 0 && ticks < (days_before(30828) - days_to_1601) * ticks_a_day;
    require(made.to_100nanosecs() == (in_range ? ticks - ticks % 10'000 : 0));
    require(made.get_day_of_week() == (day_number(made) + 6) % 7); // 1 January of 0: a Saturday

    if (is_date(left) && is_date(right)) {
        timer const span = left - right;
        std::int64_t const milliseconds
            = (((span.get_days() * 24LL + span.get_hours()) * 60 + span.get_minutes()) * 60
               + span.get_seconds())
                * 1000
            + span.get_milliseconds();
        require(milliseconds * 10'000 == counted - right.to_100nanosecs());
        require(span.get_hours() >= 0 && span.get_hours() < 24);
        require(timer(right, left) == span);
        // A timer counts its seconds in 32 bits.
        if (std::abs(milliseconds / 1000) < INT32_MAX) {
            require(span.to_int64() == milliseconds * 10'000);
            require((right + span).to_100nanosecs() == counted);
            require((left - span).to_100nanosecs() == right.to_100nanosecs());
        }
    }
    timer const any(static_cast<std::int32_t>(ticks), static_cast<signed char>(ticks >> 32),
                    static_cast<signed char>(ticks >> 40), static_cast<signed char>(ticks >> 48),
                    static_cast<std::int16_t>(ticks >> 45));
    std::int64_t const seconds
        = ((any.get_days() * 24LL + any.get_hours()) * 60 + any.get_minutes()) * 60
        + any.get_seconds();
    require(any.to_int64()
            == (std::int64_t{static_cast<std::int32_t>(seconds)} * 1000 + any.get_milliseconds())
                * 10'000); // its seconds wrap
    char text[96];
    std::snprintf(text, sizeof text, "%d days, %d hours, %d minutes, %d.%.3d seconds",
                  any.get_days(), any.get_hours(), any.get_minutes(), any.get_seconds(),
                  any.get_milliseconds());
    require(any.to_string() == text);
    require(left.to_string().size() >= 30 && left.to_string().size() < 64);
    return 0;
}
