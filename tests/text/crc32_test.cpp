// SPDX-License-Identifier: MIT
#include "zel/text/crc32.h"

#include <atomic>
#include <gtest/gtest.h>
#include <string_view>
#include <thread>
#include <vector>

namespace {

int checksum(std::string_view text)
{
    return zel::Crc32::stringCrc32(reinterpret_cast<unsigned char const *>(text.data()),
                                   static_cast<int>(text.size()));
}

TEST(crc32, gives_the_published_check_values)
{
    struct {
        std::string_view text;
        std::uint32_t sum;
    } const rows[] = {
        {"", 0},
        {"a", 0xE8B7BE43},
        {"abc", 0x352441C2},
        {"123456789", 0xCBF43926},
        {"The quick brown fox jumps over the lazy dog", 0x414FA339},
        {std::string_view("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 32),
         0x190A55AD}, // leading zeros count
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(checksum(row.text), static_cast<int>(row.sum));
    }
    EXPECT_EQ(zel::Crc32::stringCrc32(nullptr, 0), 0);
    EXPECT_EQ(zel::Crc32::stringCrc32(nullptr, -5), 0);
}

// A program of its own under ctest, so that the calls are the first ones.
TEST(crc32, takes_its_first_call_from_many_threads_at_once)
{
    std::atomic<int> waiting{8};
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            --waiting;
            while (waiting != 0) {
                std::this_thread::yield();
            }
            right += checksum("123456789") == -873187034 ? 1 : 0;
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 8);
}

} // namespace
