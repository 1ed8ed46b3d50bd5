// SPDX-License-Identifier: MIT
// Entries that are in memory already: 5,000 of them in 50 sections, asked for in no order; 1,000 of
// them changed and put on disk at once. New entries and new sections, and commits of everything, at
// several sizes: no size costs more an entry than the ones in front of it but for the processor's
// caches.
#include "zel/profile/cached_profile.h"

#include "zel/files/native_path.h"
#include "zel/profile/ini_file.h"
#include "zel/profile/sub_profile.h"
#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <glib.h>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using names = std::pair<std::string, std::string>;

std::vector<names> entries(int sections, int keys)
{
    std::vector<names> result;
    for (int section = 0; section < sections; ++section) {
        for (int i = 0; i < keys; ++i) {
            result.emplace_back("section " + std::to_string(section), "entry." + std::to_string(i));
        }
    }
    std::shuffle(result.begin(), result.end(), std::mt19937(1));
    return result;
}

/// Goes through the entries round after round.
template <typename lookup>
void look_up(benchmark::State & state, std::vector<names> const & wanted, lookup && find)
{
    std::vector<std::pair<zel::string, zel::string>> const texts(wanted.begin(), wanted.end());
    std::size_t i = 0;
    for (auto _ : state) {
        auto const & [section, key] = texts[i];
        benchmark::DoNotOptimize(find(section, key));
        i = i + 1 == texts.size() ? 0 : i + 1;
    }
}

void read_with_zel(benchmark::State & state, bool prefixed)
{
    auto const wanted = entries(50, 100);
    zel::auto_ptr<zel::cached_profile> const cache(new zel::cached_profile(nullptr));
    zel::auto_ptr<zel::iprofile> store(cache);
    if (prefixed) {
        store = new zel::sub_profile(cache, "app");
    }
    for (auto const & [section, key] : wanted) {
        store->write_string(section, key, "value");
    }
    zel::string const none;
    look_up(state, wanted, [&](zel::string const & section, zel::string const & key) {
        return store->read_string(section, key, none);
    });
    store = nullptr;
}
BENCHMARK_CAPTURE(read_with_zel, plain, false)->Name("cached read, 5,000 keys/zel");
BENCHMARK_CAPTURE(read_with_zel, below, false)
    ->Name("cached read through a prefix, 5,000 keys/without one");
BENCHMARK_CAPTURE(read_with_zel, prefixed, true)
    ->Name("cached read through a prefix, 5,000 keys/zel");

void read_with_glib(benchmark::State & state)
{
    auto const wanted = entries(50, 100);
    GKeyFile * const file = g_key_file_new();
    for (auto const & [section, key] : wanted) {
        g_key_file_set_string(file, section.c_str(), key.c_str(), "value");
    }
    look_up(state, wanted, [&](zel::string const & section, zel::string const & key) {
        char * const value = g_key_file_get_string(file, section.c_str(), key.c_str(), nullptr);
        benchmark::DoNotOptimize(value);
        g_free(value);
        return value != nullptr;
    });
    g_key_file_free(file);
}
BENCHMARK(read_with_glib)->Name("cached read, 5,000 keys/GKeyFile");

void read_with_maps(benchmark::State & state)
{
    auto const wanted = entries(50, 100);
    std::map<std::string, std::map<std::string, std::string>> store;
    for (auto const & [section, key] : wanted) {
        store[section][key] = "value";
    }
    look_up(state, wanted, [&](zel::string const & section, zel::string const & key) {
        return std::string(store.find(section)->second.find(key)->second);
    });
}
BENCHMARK(read_with_maps)->Name("cached read, 5,000 keys/two std::map");

void read_with_vectors(benchmark::State & state)
{
    auto wanted = entries(50, 100);
    auto const order = wanted;
    std::sort(wanted.begin(), wanted.end());
    std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>> store;
    for (auto const & [section, key] : wanted) {
        if (store.empty() || store.back().first != section) {
            store.push_back({section, {}});
        }
        store.back().second.emplace_back(key, "value");
    }
    auto const find = [](auto const & sorted, zel::string const & name) {
        return std::lower_bound(
            sorted.begin(), sorted.end(), name,
            [](auto const & a, auto const & b) { return a.first.compare(b) < 0; });
    };
    look_up(state, order, [&](zel::string const & section, zel::string const & key) {
        auto const at = find(store, section);
        auto const entry = find(at->second, key);
        return entry->first == key ? entry->second : std::string();
    });
}
BENCHMARK(read_with_vectors)->Name("cached read, 5,000 keys/two sorted vectors");

/// A name for a file in a folder of its own.
class place {
public:
    place()
    {
        if (::mkdtemp(folder_) == nullptr) {
            std::abort();
        }
    }
    ~place() { std::filesystem::remove_all(folder_); }
    std::string file() const { return std::string(folder_) + "/settings.ini"; }

private:
    char folder_[32] = "/tmp/zel-benchmark-XXXXXX";
};

void commit_with_zel(benchmark::State & state)
{
    place const there;
    std::vector<names> const list = entries(10, 100);
    std::vector<std::pair<zel::string, zel::string>> const wanted(list.begin(), list.end());
    zel::cached_profile cache(new zel::ini_file(zel::from_native(there.file()).c_str()));
    zel::string const values[] = {"value 1", "value 2"};
    std::size_t round = 0;
    for (auto _ : state) {
        for (auto const & [section, key] : wanted) {
            cache.write_string(section, key, values[round % 2]);
        }
        cache.commit();
        ++round;
    }
}
BENCHMARK(commit_with_zel)->Name("1,000 writes, one commit/zel")->UseRealTime();

void commit_with_glib(benchmark::State & state)
{
    place const there;
    std::vector<names> const wanted = entries(10, 100);
    GKeyFile * const file = g_key_file_new();
    char const * const values[] = {"value 1", "value 2"};
    std::size_t round = 0;
    for (auto _ : state) {
        for (auto const & [section, key] : wanted) {
            g_key_file_set_string(file, section.c_str(), key.c_str(), values[round % 2]);
        }
        g_key_file_save_to_file(file, there.file().c_str(), nullptr);
        ++round;
    }
    g_key_file_free(file);
}
BENCHMARK(commit_with_glib)->Name("1,000 writes, one commit/GKeyFile")->UseRealTime();

/// New names in no order, so that each lands somewhere in the middle.
std::vector<zel::string> new_names(std::int64_t count)
{
    std::vector<zel::string> result;
    for (std::int64_t i = 0; i < count; ++i) {
        result.emplace_back("entry." + std::to_string(i));
    }
    std::shuffle(result.begin(), result.end(), std::mt19937(1));
    return result;
}

// Time an entry: a section, or the sections, grow from nothing to that size.
void write_new_with_zel(benchmark::State & state, bool sections)
{
    auto const wanted = new_names(state.range(0));
    zel::string const one("section"), value("value");
    for (auto _ : state) {
        zel::auto_ptr<zel::cached_profile> cache(new zel::cached_profile(nullptr));
        for (zel::string const & name : wanted) {
            cache->write_string(sections ? name : one, sections ? one : name, value);
        }
        state.PauseTiming();
        cache = nullptr;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void write_new_with_maps(benchmark::State & state, bool sections)
{
    auto const wanted = new_names(state.range(0));
    zel::string const one("section"), value("value");
    for (auto _ : state) {
        auto store = std::make_unique<std::map<std::string, std::map<std::string, std::string>>>();
        for (zel::string const & name : wanted) {
            (*store)[sections ? name : one][sections ? one : name] = value;
        }
        state.PauseTiming();
        store = nullptr;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define SIZES RangeMultiplier(10)->Range(1'000, 1'000'000)
BENCHMARK_CAPTURE(write_new_with_zel, , false)->Name("cached write of new entries/zel")->SIZES;
BENCHMARK_CAPTURE(write_new_with_maps, , false)
    ->Name("cached write of new entries/two std::map")
    ->SIZES;
BENCHMARK_CAPTURE(write_new_with_zel, , true)->Name("cached write of new sections/zel")->SIZES;
BENCHMARK_CAPTURE(write_new_with_maps, , true)
    ->Name("cached write of new sections/two std::map")
    ->SIZES;

// Every entry of a file changes and goes out; the peer's work is the same text put together.
void commit_all_with_zel(benchmark::State & state)
{
    place const there;
    auto const wanted = new_names(state.range(0));
    zel::cached_profile cache(new zel::ini_file(zel::from_native(there.file()).c_str()));
    zel::string const one("section"), values[] = {"value 1", "value 2"};
    std::size_t round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        for (zel::string const & name : wanted) {
            cache.write_string(one, name, values[round % 2]);
        }
        ++round;
        state.ResumeTiming();
        cache.commit();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void commit_all_with_glib(benchmark::State & state)
{
    place const there;
    auto const wanted = new_names(state.range(0));
    GKeyFile * const file = g_key_file_new();
    char const * const values[] = {"value 1", "value 2"};
    std::size_t round = 0;
    for (auto _ : state) {
        state.PauseTiming();
        for (zel::string const & name : wanted) {
            g_key_file_set_string(file, "section", name.c_str(), values[round % 2]);
        }
        ++round;
        state.ResumeTiming();
        g_key_file_save_to_file(file, there.file().c_str(), nullptr);
    }
    g_key_file_free(file);
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(commit_all_with_zel)
    ->Name("commit of all entries/zel")
    ->RangeMultiplier(10)
    ->Range(1'000, 100'000)
    ->UseRealTime();
BENCHMARK(commit_all_with_glib)
    ->Name("commit of all entries/GKeyFile")
    ->RangeMultiplier(10)
    ->Range(1'000, 100'000)
    ->UseRealTime();

} // namespace
