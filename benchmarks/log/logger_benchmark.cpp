// SPDX-License-Identifier: MIT
// Messages to an output that discards them. The peer formats into a string and hands it on, as we
// do.
#include "zel/log/logger.h"

#include <benchmark/benchmark.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/spdlog.h>

namespace {

class discarding_logger : public zel::logger {
protected:
    void output_buffer(log_type, zel::string const & text, zel::string const &) override
    {
        benchmark::DoNotOptimize(text.data());
    }
};

class string_sink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
protected:
    void sink_it_(spdlog::details::log_msg const & message) override
    {
        std::string const text(message.payload.data(), message.payload.size());
        benchmark::DoNotOptimize(text.data());
    }
    void flush_() override { }
};

void log_with_zel(benchmark::State & state)
{
    discarding_logger log;
    int line = 0;
    for (auto _ : state) {
        log.write(zel::logger::info, "request %d of %s took %u us", ++line, "client-17", 1234U);
    }
}
BENCHMARK(log_with_zel)->Name("log message/zel");

void log_with_spdlog(benchmark::State & state)
{
    spdlog::logger log("bench", std::make_shared<string_sink>());
    int line = 0;
    for (auto _ : state) {
        log.info("request {} of {} took {} us", ++line, "client-17", 1234U);
    }
}
BENCHMARK(log_with_spdlog)->Name("log message/spdlog");

void suppressed_with_zel(benchmark::State & state)
{
    discarding_logger log;
    log.set_group_limitation(0);
    for (char const * const group : {"network", "disk", "parser", "cache"}) {
        log.write_grouped(zel::logger::info, group, "first");
    }
    int line = 0;
    for (auto _ : state) {
        log.write_grouped(zel::logger::info, "disk", "request %d of %s took %u us", ++line,
                          "client-17", 1234U);
    }
}
BENCHMARK(suppressed_with_zel)->Name("suppressed grouped message/zel");

void formatting_alone(benchmark::State & state)
{
    int line = 0;
    for (auto _ : state) {
        zel::string text;
        text.format("request %d of %s took %u us", ++line, "client-17", 1234U);
        benchmark::DoNotOptimize(text.data());
    }
}
BENCHMARK(formatting_alone)->Name("suppressed grouped message/formatting alone");

} // namespace
