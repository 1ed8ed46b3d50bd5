// SPDX-License-Identifier: MIT
// Making identifiers and printing them into a text that the caller owns.

#include "zel/values/uid.h"

#include <benchmark/benchmark.h>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <uuid/uuid.h>

#include <string>

namespace {

void create_with_zel(benchmark::State & state)
{
    zel::uid id;
    for (auto _ : state) {
        id.create();
        benchmark::DoNotOptimize(id);
    }
}

void create_with_libuuid(benchmark::State & state)
{
    uuid_t id;
    for (auto _ : state) {
        uuid_generate_random(id);
        benchmark::DoNotOptimize(id);
    }
}

void create_with_boost(benchmark::State & state)
{
    boost::uuids::random_generator generator; // one for all, as its documentation advises
    boost::uuids::uuid id;
    for (auto _ : state) {
        id = generator();
        benchmark::DoNotOptimize(id);
    }
}

void print_with_zel(benchmark::State & state)
{
    zel::uid id;
    id.create();
    for (auto _ : state) {
        benchmark::DoNotOptimize(id);
        zel::string text = id.to_string();
        benchmark::DoNotOptimize(text);
    }
}

void print_with_libuuid(benchmark::State & state)
{
    uuid_t id;
    uuid_generate_random(id);
    for (auto _ : state) {
        benchmark::DoNotOptimize(id);
        char digits[UUID_STR_LEN];
        uuid_unparse_upper(id, digits);
        std::string text(digits, sizeof digits - 1);
        benchmark::DoNotOptimize(text);
    }
}

void print_with_boost(benchmark::State & state)
{
    boost::uuids::uuid id = boost::uuids::random_generator()();
    for (auto _ : state) {
        benchmark::DoNotOptimize(id);
        std::string text = boost::uuids::to_string(id);
        benchmark::DoNotOptimize(text);
    }
}

BENCHMARK(create_with_zel)->Name("uid_create/zel");
BENCHMARK(create_with_libuuid)->Name("uid_create/libuuid");
BENCHMARK(create_with_boost)->Name("uid_create/boost");

BENCHMARK(print_with_zel)->Name("uid_to_string/zel");
BENCHMARK(print_with_libuuid)->Name("uid_to_string/libuuid");
BENCHMARK(print_with_boost)->Name("uid_to_string/boost");

} // namespace
