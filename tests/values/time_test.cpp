// SPDX-License-Identifier: MIT
#include "zel/values/time.h"

#include "tests/support/processes.h"
#include "tests/support/property.h"
#include "zel/core/auto_ptr.h"
#include "zel/platform/last_error.h"
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <sstream>

extern "C" property calendar_property;

namespace {

using zel::auto_ptr;
using zel::time;
using zel::timer;

time date(unsigned year, unsigned month, unsigned day, unsigned char hour = 0,
          unsigned char minute = 0, unsigned char second = 0, std::uint16_t milliseconds = 0)
{
    return time(static_cast<unsigned char>(day), static_cast<time::month>(month),
                static_cast<std::uint16_t>(year), hour, minute, second, milliseconds);
}

std::string written(auto const & value) { return (std::ostringstream() << value).str(); }

TEST(time, keeps_to_the_calendar)
{
    expect_for_any(calendar_property, 300'000,
                   [](auto & random) { return any_bytes(random, 24, "\1\2\x1C"); });
    for (unsigned const year : {1900U, 2000U, 2003U, 2004U}) {
        unsigned const days = year % 2000 == 0 || year == 2004 ? 29 : 28;
        EXPECT_EQ((date(year, 3, 1) - date(year, 2, 28)).get_days(), days - 27);
    }
}

TEST(time, gives_the_start_of_1601_for_what_is_no_date)
{
    time first = date(1601, 1, 1);
    first.set_day_of_week(time::monday);
    time last = date(30827, 12, 31, 23, 59, 59, 999);
    EXPECT_EQ((time(last.to_100nanosecs()) - last), timer());
    std::int64_t const beyond = last.to_100nanosecs() + 10'000;
    for (std::int64_t const ticks :
         {std::int64_t{-1}, INT64_MIN, INT64_MAX, beyond, std::int64_t{9'999}}) {
        EXPECT_EQ(time(ticks), first) << ticks;
    }
    EXPECT_EQ(time(static_cast<time::time_enum>(2)), first);
    EXPECT_EQ(last + timer(1), first);
    EXPECT_EQ(last + timer(24'800), first); // beyond 64 bits
    EXPECT_EQ(first - timer(0, 0, 0, 0, 1), first);

    // The calendar's property says what is no date.
    for (time const & value : {date(1600, 12, 31), date(2023, 1, 1, 0, 0, 0, 1000)}) {
        SCOPED_TRACE(value.to_string());
        zel::platform::set_last_error(0);
        EXPECT_EQ(value.to_100nanosecs(), 0);
        EXPECT_FALSE(value.write_system());
        EXPECT_FALSE(value.write_local());
        EXPECT_EQ(zel::platform::last_error(), zel::platform::error_invalid_parameter);
    }
}

TEST(time, subtracts_in_the_calendar)
{
    // clang-format off
    struct { time left, right; timer span; } const rows[] = {
        {date(2007, 1, 1), date(2006, 12, 31, 23, 59, 59, 999), timer(0, 0, 0, 0, 1)},
        {date(2007, 5, 5, 10), date(2007, 5, 5, 12), timer(-1, 22)},
        {date(1, 1, 1), date(0, 12, 31), timer(1)}, // year 0 has 366 days
        {date(0, 3, 1), date(0, 2, 28), timer(2)},
        {date(2007, 13, 1), date(2007, 1, 1), timer(365)},
        {date(2007, 0x80000000, 1), date(2007, 0, 1), timer(365)}, // the table ends there
        {date(2007, 1, 0), date(2007, 1, 255), timer(-255)},
        {date(2007, 1, 1, 255), date(2007, 1, 1), timer(-1, 23)}, // a field counts in 8 bits
        {date(2007, 1, 1, 0, 0, 0, 65535), date(2007, 1, 1), timer(-1, 23, 59, 59, 999)},
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(testing::Message() << row.left << " less " << row.right);
        EXPECT_EQ(row.left - row.right, row.span) << row.left - row.right;
        EXPECT_EQ(timer(row.right, row.left), row.span);
    }
}

TEST(time, has_a_text_for_every_field_and_the_weekday_of_a_sum)
{
    time value = date(2004, 2, 28, 23, 59, 59, 999);
    value += timer(0, 0, 0, 0, 1);
    EXPECT_EQ(value.to_string(), "Sunday February 29 00:00:00.000  2004");
    value -= timer(1, 0, 0, 0, -1);
    EXPECT_EQ(value - timer(), value);
    EXPECT_EQ(written(value), "Saturday February 28 00:00:00.001  2004");

    value = date(2007, 3, 1, 9, 5, 7, 42);
    EXPECT_EQ(value.to_string(), "Unknown March 01 09:05:07.042  2007");
    value.set_day_of_week(static_cast<time::day_of_week>(0xFFFFFFFF));
    value.set_month(static_cast<time::month>(0));
    EXPECT_EQ(value.to_string(), "Unknown Unknown 01 09:05:07.042  2007");
    value = date(0, 13, 255, 255, 255, 255, 65535);
    EXPECT_EQ(value.to_string(), "Unknown Unknown 255 255:255:255.65535  0");
}

TEST(time, copies_the_fields_and_not_the_count)
{
    auto const expect = []<typename value>(auto_ptr<value> const & held, value const & other) {
        value copy(*held);
        EXPECT_TRUE(copy.ref_count() == 0 && copy == *held && copy != other);
        *held = other;
        EXPECT_TRUE(held->ref_count() == 1 && *held == other);
    };
    expect(auto_ptr(new time(date(2007, 3, 1))), date(2007, 3, 1, 0, 0, 0, 1));
    expect(auto_ptr(new timer(0, 24)), timer(1));
}

TEST(time, reads_the_clock_in_the_zone_of_the_moment)
{
    auto const offset = [] { // of local time, in seconds; the clock goes on between the reads
        std::int64_t const utc = time(time::system_time).to_100nanosecs();
        std::int64_t const local = time(time::local_time).to_100nanosecs();
        return std::lround(static_cast<double>(local - utc) / 1e7);
    };
    std::string const before = std::getenv("TZ");
    // clang-format off
    struct { char const * rules; std::int64_t seconds; } const rows[] = {
        {"UTC0", 0}, {"AAA-5:45", 20'700}, {"BBB3:30:01", -12'601}, {"", 0},
        // too long a name to be kept
        {"<ABCDEFGHIJKLMNOPQRSTUVWXYZABCDEFGHIJKLMNOPQRSTUVWXYZABCDEFGHIJKL>-1", 3600},
    };
    // clang-format on
    for (auto const & row : rows) {
        ::setenv("TZ", row.rules, 1);
        EXPECT_EQ(offset(), row.seconds) << row.rules;
        EXPECT_EQ(offset(), row.seconds) << row.rules; // from what was kept
    }
    ::setenv("TZ", before.c_str(), 1);
    std::int64_t const seconds
        = (time(time::system_time).to_100nanosecs() - date(1970, 1, 1).to_100nanosecs())
        / 10'000'000;
    EXPECT_NEAR(static_cast<double>(std::time(nullptr)), static_cast<double>(seconds), 2);
}

TEST(time, reports_that_a_user_may_not_set_the_clock)
{
    // The superuser\'s rights go first: the clock of the machine is not to be changed.
    EXPECT_TRUE(holds_for_ordinary_user([] {
        time const now(time::system_time);
        time const local(time::local_time);
        auto const refused = [](bool done) {
            return !done && zel::platform::last_error() == zel::platform::error_privilege_not_held;
        };
        return refused(now.write_system()) && refused(local.write_local());
    }));
}

TEST(timer, counts_its_fields_as_they_stand)
{
    EXPECT_EQ(written(timer(2, 3, 4, 5, 6)), "2 days, 3 hours, 4 minutes, 5.006 seconds");
    EXPECT_EQ(timer(2, 3, 4, 5, 6).to_int64(), 1'838'450'060'000);
    EXPECT_EQ(timer(24855, 3, 14, 8).to_int64(), -21'474'836'480'000'000); // 32 bits wrap
    EXPECT_EQ(timer(0, 24).to_int64(), timer(1).to_int64());
}

} // namespace
