// SPDX-License-Identifier: MIT
#include "zel/text/crc32.h"

#include "tests/support/threads_at_once.h"
#include "zel/text/crc32_kernels.h"
#include <algorithm>
#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string_view>
#include <vector>

namespace {

namespace kernels = zel::crc32_kernels;

std::uint32_t by_bits(std::uint32_t crc, unsigned char const * data, std::size_t length)
{
    crc = ~crc;
    for (std::size_t i = 0; i < length; ++i) {
        crc ^= data[i];
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc >> 1 ^ (crc & 1 ? 0xEDB88320 : 0);
        }
    }
    return ~crc;
}

TEST(crc32_kernels, agree_with_the_definition_at_every_length_and_alignment)
{
    auto const of_processor = kernels::of_processor();
    std::vector<kernels::choice> all(of_processor.begin(), of_processor.end());
    all.push_back({"slices", kernels::by_slices, []() noexcept { return true; }});
    std::mt19937_64 random{20261124};
    for (auto const & each : all) {
        for (std::size_t i = 0; i < 900 && each.runs_here(); ++i) {
            std::size_t const length = i < 700 ? i : random() % 20'000, offset = random() % 64;
            // A block of just this size, for a sanitizer to see a step too far.
            auto const block = std::make_unique<unsigned char[]>(offset + length);
            std::generate_n(block.get(), offset + length,
                            [&] { return static_cast<unsigned char>(random()); });
            auto const before = static_cast<std::uint32_t>(random());
            ASSERT_EQ(each.compute(before, block.get() + offset, length),
                      by_bits(before, block.get() + offset, length))
                << each.name << ", " << length << " bytes at " << offset;
        }
    }
}

int checksum(std::string_view text)
{
    return zel::Crc32::stringCrc32(reinterpret_cast<unsigned char const *>(text.data()),
                                   static_cast<int>(text.size()));
}

TEST(crc32, gives_the_published_check_value)
{
    EXPECT_EQ(checksum("123456789"), static_cast<int>(0xCBF43926));
    EXPECT_EQ(checksum(""), 0);
    EXPECT_EQ(zel::Crc32::stringCrc32(nullptr, -5), 0);
}

// A program of its own under ctest, so that the calls are the first ones.
TEST(crc32, takes_its_first_call_from_many_threads_at_once)
{
    std::atomic<int> right{0};
    run_at_once(8, [&](int) { right += checksum("123456789") == -873187034 ? 1 : 0; });
    EXPECT_EQ(right, 8);
}

} // namespace
