// SPDX-License-Identifier: MIT
#include "zel/values/time.h"

#include <absl/time/civil_time.h>
#include <absl/time/clock.h>
#include <absl/time/time.h>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <ctime>
#include <string>

namespace {

void now_as_text_zel(benchmark::State & state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(zel::time(zel::time::local_time).to_string());
    }
}
BENCHMARK(now_as_text_zel)->Name("now_as_text/zel");

void now_as_text_runtime(benchmark::State & state)
{
    for (auto _ : state) {
        std::timespec now{};
        std::timespec_get(&now, TIME_UTC);
        std::tm fields{};
        ::localtime_r(&now.tv_sec, &fields);
        static char const * const days[]
            = {"Sunday", "Monday", "Tuesday", "Wednesday", "Thursday", "Friday", "Saturday"};
        static char const * const months[]
            = {"January", "February", "March",     "April",   "May",      "June",
               "July",    "August",   "September", "October", "November", "December"};
        char text[96];
        int const length = std::snprintf(
            text, sizeof text, "%s %s %.2d %.2d:%.2d:%.2d.%.3d  %d", days[fields.tm_wday],
            months[fields.tm_mon], fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec,
            static_cast<int>(now.tv_nsec / 1'000'000), fields.tm_year + 1900);
        benchmark::DoNotOptimize(std::string(text, static_cast<std::size_t>(length)));
    }
}
BENCHMARK(now_as_text_runtime)->Name("now_as_text/localtime_r");

void now_as_text_absl(benchmark::State & state)
{
    absl::TimeZone const zone = absl::LocalTimeZone();
    for (auto _ : state) {
        benchmark::DoNotOptimize(absl::FormatTime("%A %B %d %H:%M:%E3S  %Y", absl::Now(), zone));
    }
}
BENCHMARK(now_as_text_absl)->Name("now_as_text/absl");

void utc_fields_zel(benchmark::State & state)
{
    for (auto _ : state) {
        zel::time now(zel::time::system_time);
        benchmark::DoNotOptimize(now);
    }
}
BENCHMARK(utc_fields_zel)->Name("clock_as_utc_fields/zel");

void utc_fields_runtime(benchmark::State & state)
{
    for (auto _ : state) {
        std::timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        std::tm fields{};
        ::gmtime_r(&now.tv_sec, &fields);
        benchmark::DoNotOptimize(fields);
    }
}
BENCHMARK(utc_fields_runtime)->Name("clock_as_utc_fields/gmtime_r");

// The least that it can cost: the clock without the fields.
void clock_alone(benchmark::State & state)
{
    for (auto _ : state) {
        std::timespec now{};
        ::clock_gettime(CLOCK_REALTIME, &now);
        benchmark::DoNotOptimize(now);
    }
}
BENCHMARK(clock_alone)->Name("clock_as_utc_fields/limit");

void difference_zel(benchmark::State & state)
{
    zel::time left(9, zel::time::november, 2031, 8, 5, 7, 42);
    zel::time right(28, zel::time::february, 1999, 17, 35, 9, 990);
    for (auto _ : state) {
        benchmark::DoNotOptimize(left);
        benchmark::DoNotOptimize(right);
        benchmark::DoNotOptimize(left - right);
    }
}
BENCHMARK(difference_zel)->Name("difference/zel");

void difference_absl(benchmark::State & state)
{
    absl::CivilSecond left(2031, 11, 9, 8, 5, 7);
    absl::CivilSecond right(1999, 2, 28, 17, 35, 9);
    for (auto _ : state) {
        benchmark::DoNotOptimize(left);
        benchmark::DoNotOptimize(right);
        benchmark::DoNotOptimize(left - right);
    }
}
BENCHMARK(difference_absl)->Name("difference/absl");

} // namespace
