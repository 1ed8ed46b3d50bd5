// SPDX-License-Identifier: MIT
// How jobs grow with their size: nanoseconds an item, from a thousand items to a million. There are
// no peers; a line that stays level is the aim. More rows with sizes are in the benchmark of cached
// profiles. Processor time, because nothing here waits.
#include "zel/files/native_path.h"
#include "zel/files/path.h"
#include "zel/profile/ini_file.h"
#include "zel/text/string.h"
#include "zel/threads/event.h"
#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// A folder that is removed at the end.
class place {
public:
    place()
    {
        if (::mkdtemp(folder_) == nullptr) {
            std::abort();
        }
    }
    ~place() { fs::remove_all(folder_); }
    std::string name() const { return folder_; }

private:
    char folder_[32] = "/tmp/zel-benchmark-XXXXXX";
};

zel::string numbers(std::int64_t count)
{
    std::string text;
    for (std::int64_t i = 0; i < count; ++i) {
        text += std::to_string(i) + ',';
    }
    return text;
}

void split(benchmark::State & state)
{
    zel::string const text = numbers(state.range(0));
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.split(","));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void replace_all(benchmark::State & state)
{
    zel::string const source = numbers(state.range(0));
    for (auto _ : state) {
        zel::string text = source;
        text.replace(",", " and ");
        benchmark::DoNotOptimize(text);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void create_and_close(benchmark::State & state, bool named)
{
    auto const count = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        std::vector<std::unique_ptr<zel::event>> held;
        for (std::size_t i = 0; i < count; ++i) {
            std::string const name = named ? "zel growth " + std::to_string(i) : "";
            held.push_back(std::make_unique<zel::event>(false, false, name.c_str()));
        }
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void list_entries(benchmark::State & state)
{
    static std::map<std::int64_t, place> folders; // made once, for all repetitions
    auto const [there, is_new] = folders.try_emplace(state.range(0));
    for (std::int64_t i = 0; is_new && i < state.range(0); ++i) {
        std::ofstream(there->second.name() + "/entry number " + std::to_string(i));
    }
    zel::path folder = zel::from_native(there->second.name());
    for (auto _ : state) {
        std::list<zel::auto_ptr<zel::path>> entries;
        folder.get_entries(entries);
        benchmark::DoNotOptimize(entries);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

// The last entry, so that the whole file is looked through; an item is an entry in front of it.
void read_setting(benchmark::State & state)
{
    place const there;
    {
        std::ofstream file(there.name() + "/settings.ini");
        file << "[section]\n";
        for (std::int64_t i = 0; i < state.range(0); ++i) {
            file << "entry." << i << "=value " << i << '\n';
        }
    }
    zel::ini_file settings(zel::from_native(there.name() + "/settings.ini").c_str());
    zel::string const section("section"), none;
    zel::string const last = "entry." + std::to_string(state.range(0) - 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(settings.read_string(section, last, none));
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define SIZES_TO(last) RangeMultiplier(10)->Range(1'000, last)
BENCHMARK(split)->Name("split/zel")->SIZES_TO(1'000'000);
BENCHMARK(replace_all)->Name("replace all, by hits/zel")->SIZES_TO(1'000'000);
BENCHMARK_CAPTURE(create_and_close, , false)->Name("events held/zel")->SIZES_TO(1'000'000);
BENCHMARK_CAPTURE(create_and_close, , true)
    ->Name("named events held/zel")
    ->Arg(1'000)
    ->Arg(3'000)
    ->Arg(10'000);
BENCHMARK(list_entries)->Name("list entries/zel")->SIZES_TO(100'000);
BENCHMARK(read_setting)->Name("read the last setting/zel")->SIZES_TO(1'000'000);

} // namespace
