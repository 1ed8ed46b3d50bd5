// SPDX-License-Identifier: MIT
// The road that most programs take, a prefix over a cache over a file: the fuzzer's property over
// operations without end. It ends the program with a line that says what does not hold.
#include <cstddef>
#include <gtest/gtest.h>
#include <random>

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * data, std::size_t size);

namespace {

TEST(stacked_stores, behave_like_a_plain_map)
{
    std::mt19937 random(11);
    for (int round = 0; round < 40; ++round) {
        unsigned char operations[1000];
        for (unsigned char & each : operations) {
            each = static_cast<unsigned char>(random());
        }
        EXPECT_EQ(LLVMFuzzerTestOneInput(operations, sizeof operations), 0);
    }
}

} // namespace
