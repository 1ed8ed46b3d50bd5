// SPDX-License-Identifier: MIT
// Growing an array of bytes from nothing, piece by piece.

#include "zel/text/buffer.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <glib.h>
#include <vector>

namespace {

constexpr int pieces = 64;

void append_with_zel(benchmark::State & state)
{
    std::vector<unsigned char> const piece(static_cast<std::size_t>(state.range(0)), 'x');
    auto const size = static_cast<std::uint32_t>(piece.size());
    for (auto _ : state) {
        zel::buffer bytes;
        for (int i = 0; i < pieces; ++i) {
            bytes.append(piece.data(), size);
        }
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetItemsProcessed(state.iterations() * pieces);
}

// A block that has no spare room, as a buffer has to keep it.
void append_by_hand(benchmark::State & state)
{
    std::vector<unsigned char> const piece(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        unsigned char * bytes = nullptr;
        std::size_t size = 0;
        for (int i = 0; i < pieces; ++i) {
            bytes = static_cast<unsigned char *>(std::realloc(bytes, size + piece.size()));
            std::memcpy(bytes + size, piece.data(), piece.size());
            size += piece.size();
        }
        benchmark::DoNotOptimize(bytes);
        std::free(bytes);
    }
    state.SetItemsProcessed(state.iterations() * pieces);
}

void append_with_glib(benchmark::State & state)
{
    std::vector<unsigned char> const piece(static_cast<std::size_t>(state.range(0)), 'x');
    auto const size = static_cast<guint>(piece.size());
    for (auto _ : state) {
        GByteArray * const bytes = g_byte_array_new();
        for (int i = 0; i < pieces; ++i) {
            g_byte_array_append(bytes, piece.data(), size);
        }
        benchmark::DoNotOptimize(bytes->data);
        g_byte_array_unref(bytes);
    }
    state.SetItemsProcessed(state.iterations() * pieces);
}

void append_with_vector(benchmark::State & state)
{
    std::vector<unsigned char> const piece(static_cast<std::size_t>(state.range(0)), 'x');
    for (auto _ : state) {
        std::vector<unsigned char> bytes;
        for (int i = 0; i < pieces; ++i) {
            bytes.insert(bytes.end(), piece.begin(), piece.end());
        }
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetItemsProcessed(state.iterations() * pieces);
}

BENCHMARK(append_with_zel)->Name("buffer_append/zel")->Arg(1)->Arg(64)->Arg(4096);
BENCHMARK(append_by_hand)->Name("buffer_append/limit")->Arg(1)->Arg(64)->Arg(4096);
BENCHMARK(append_with_glib)->Name("buffer_append/GByteArray")->Arg(1)->Arg(64)->Arg(4096);
BENCHMARK(append_with_vector)->Name("buffer_append/std_vector")->Arg(1)->Arg(64)->Arg(4096);

} // namespace
