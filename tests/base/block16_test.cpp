// SPDX-License-Identifier: MIT
#include "zel/base/block16.h"

#include "zel/base/block16_portable.h"
#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

using bytes = std::array<unsigned char, 16>;
using portable = zel::block16_portable;

template <typename block> bytes bytes_of(block from)
{
    bytes result;
    from.store(result.data());
    return result;
}

// What every operation makes of the same bytes, one after the other.
template <typename block> std::vector<bytes> results(bytes const & first, bytes const & second)
{
    auto const a = block::load(first.data());
    auto const b = block::load(second.data());
    std::uint64_t words[2];
    std::memcpy(words, first.data(), sizeof words);
    std::vector<bytes> all;
    for (block const & result :
         {a & b, a | b, a ^ b, without(a, b), a + b, equal(a, b), greater(a, b), smaller(a, b),
          a.low_nibbles(), a.high_nibbles(), interleave_first(a, b), interleave_last(a, b),
          block::filled(static_cast<char>(first[0])), block::of_words(words[0], words[1])}) {
        all.push_back(bytes_of(result));
    }
    bytes bits{};
    std::uint32_t const signs = a.sign_bits();
    std::memcpy(bits.data(), &signs, sizeof signs);
    all.push_back(bits);
    return all;
}

TEST(block16, does_the_same_in_the_form_of_this_processor_and_in_plain_code)
{
    std::mt19937_64 random{20261125};
    for (int round = 0; round < 10'000; ++round) {
        bytes first{};
        bytes second{};
        for (std::size_t i = 0; i < 16; ++i) {
            first[i] = static_cast<unsigned char>(random());
            second[i] = random() % 2 == 0 ? first[i] : static_cast<unsigned char>(random());
        }
        ASSERT_EQ(results<zel::block16>(first, second), results<portable>(first, second));
    }
}

} // namespace
