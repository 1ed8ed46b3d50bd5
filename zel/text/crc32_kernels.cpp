// SPDX-License-Identifier: MIT
#include "zel/text/crc32_kernels.h"

#include "zel/base/load_word.h"
#include "zel/text/crc32_folding.h"
#include <algorithm>

namespace zel::crc32_kernels {
namespace {

constexpr slices make_table()
{
    slices made{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t c = i;
        for (int bit = 0; bit < 8; ++bit) {
            c = c >> 1 ^ (c & 1 ? crc32_folding::reflected_p : 0);
        }
        made[0][i] = c;
    }
    for (std::size_t k = 1; k < made.size(); ++k) {
        for (std::size_t i = 0; i < 256; ++i) {
            made[k][i] = made[k - 1][i] >> 8 ^ made[0][made[k - 1][i] & 0xFF];
        }
    }
    return made;
}

// The contribution of four bytes that are followed by `behind` bytes in the same step.
std::uint32_t slice(std::uint32_t bytes, std::size_t behind)
{
    return table[behind + 3][bytes & 0xFF] ^ table[behind + 2][bytes >> 8 & 0xFF]
        ^ table[behind + 1][bytes >> 16 & 0xFF] ^ table[behind][bytes >> 24];
}

[[gnu::cold]] std::uint32_t find_fastest(std::uint32_t crc, unsigned char const * data,
                                         std::size_t length) noexcept
{
    std::span<choice const> const choices = of_processor();
    auto const best = std::find_if(choices.begin(), choices.end(),
                                   [](choice const & c) { return c.runs_here(); });
    kernel const compute = best == choices.end() ? by_slices : best->compute;
    by_fastest.store(compute, std::memory_order_relaxed);
    return compute(crc, data, length);
}

} // namespace

constinit slices const table = make_table();
constinit std::atomic<kernel> by_fastest = find_fastest;

std::uint32_t by_slices(std::uint32_t crc, unsigned char const * data, std::size_t length) noexcept
{
    crc = ~crc;
    for (; length >= 16; data += 16, length -= 16) {
        crc = slice(load_word<std::uint32_t>(data) ^ crc, 12)
            ^ slice(load_word<std::uint32_t>(data + 4), 8)
            ^ slice(load_word<std::uint32_t>(data + 8), 4)
            ^ slice(load_word<std::uint32_t>(data + 12), 0);
    }
    for (; length >= 4; data += 4, length -= 4) {
        crc = slice(load_word<std::uint32_t>(data) ^ crc, 0);
    }
    for (; length != 0; --length) {
        crc = crc >> 8 ^ table[0][(crc & 0xFF) ^ *data++];
    }
    return ~crc;
}

} // namespace zel::crc32_kernels
