// SPDX-License-Identifier: MIT
// The CRC-32 of blocks of several sizes, one after another as a reader of a file would ask for it.

#include "zel/text/crc32.h"

#include <benchmark/benchmark.h>
#include <isa-l/crc.h>
#include <libdeflate.h>
#include <zlib.h>

#include <cstdint>
#include <random>
#include <vector>

namespace {

std::uint32_t with_zel(unsigned char const * data, std::size_t length)
{
    return static_cast<std::uint32_t>(zel::Crc32::stringCrc32(data, static_cast<int>(length)));
}

std::uint32_t with_isal(unsigned char const * data, std::size_t length)
{
    return crc32_gzip_refl(0, data, length);
}

std::uint32_t with_libdeflate(unsigned char const * data, std::size_t length)
{
    return libdeflate_crc32(0, data, length);
}

std::uint32_t with_zlib(unsigned char const * data, std::size_t length)
{
    return static_cast<std::uint32_t>(crc32(0, data, static_cast<uInt>(length)));
}

std::vector<unsigned char> random_bytes(std::size_t count)
{
    std::mt19937 generator(1);
    std::vector<unsigned char> bytes(count);
    for (unsigned char & byte : bytes) {
        byte = static_cast<unsigned char>(generator());
    }
    return bytes;
}

template <auto checksum> void crc32_of(benchmark::State & state)
{
    auto const length = static_cast<std::size_t>(state.range(0));
    std::vector<unsigned char> const bytes = random_bytes(length);
    for (auto _ : state) {
        unsigned char const * data = bytes.data();
        benchmark::DoNotOptimize(data);
        benchmark::DoNotOptimize(checksum(data, length));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void sizes(benchmark::internal::Benchmark * benchmark)
{
    for (int size : {16, 64, 250, 1 << 10, 16 << 10, 1 << 20}) {
        benchmark->Arg(size);
    }
}

BENCHMARK(crc32_of<with_zel>)->Name("crc32/zel")->Apply(sizes);
BENCHMARK(crc32_of<with_isal>)->Name("crc32/isal")->Apply(sizes);
BENCHMARK(crc32_of<with_libdeflate>)->Name("crc32/libdeflate")->Apply(sizes);
BENCHMARK(crc32_of<with_zlib>)->Name("crc32/zlib")->Apply(sizes);

} // namespace
