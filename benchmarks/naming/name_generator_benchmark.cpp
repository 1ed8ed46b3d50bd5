// SPDX-License-Identifier: MIT
// No peer does this job; "limit" is the least that could be written by hand: one pass over the
// name's bytes into one allocated text.
#include "zel/naming/name_generator.h"

#include <benchmark/benchmark.h>
#include <string>
#include <vector>

namespace {

// About 3.4 words a name.
std::vector<zel::string> const & short_names()
{
    static std::vector<zel::string> const names{
        "temperatureOffsetValue", "pixelClockFrequency",      "registerAddressOffset",
        "connection_timeout_ms",  "HorizontalSyncPulseWidth", "frameBufferWidth",
        "maximumRequestLength",   "userPreferencesWindow",
    };
    return names;
}

// About 11.7 words a name.
std::vector<zel::string> const & long_names()
{
    static std::vector<zel::string> const names{
        "maximumNumberOfPendingNetworkRequestsPerConnectedUserSession",
        "temperature_sensor_calibration_register_address_offset_of_second_channel_group_in_bytes",
        "shouldRestoreThePreviousWindowPositionWhenTheApplicationStartsAgain",
    };
    return names;
}

void abbreviate(benchmark::State & state, std::vector<zel::string> const & names)
{
    zel::name_generator const shortener;
    std::size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(shortener.abbreviate(names[i], 12));
        i = i + 1 == names.size() ? 0 : i + 1;
    }
}

void limit(benchmark::State & state, std::vector<zel::string> const & names)
{
    std::size_t i = 0;
    for (auto _ : state) {
        zel::string text(names[i]);
        for (char & c : text) {
            c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
        }
        benchmark::DoNotOptimize(text);
        i = i + 1 == names.size() ? 0 : i + 1;
    }
}

void abbreviate_short(benchmark::State & state) { abbreviate(state, short_names()); }
void abbreviate_long(benchmark::State & state) { abbreviate(state, long_names()); }
void limit_short(benchmark::State & state) { limit(state, short_names()); }
void limit_long(benchmark::State & state) { limit(state, long_names()); }

BENCHMARK(abbreviate_short)->Name("abbreviate/3.4 words/zel");
BENCHMARK(limit_short)->Name("abbreviate/3.4 words/limit");
BENCHMARK(abbreviate_long)->Name("abbreviate/11.7 words/zel");
BENCHMARK(limit_long)->Name("abbreviate/11.7 words/limit");

} // namespace
