// SPDX-License-Identifier: MIT
#include "zel/values/uid.h"

#include "tests/support/processes.h"
#include "tests/support/threads_at_once.h"
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/mman.h>
#include <unordered_set>
#include <vector>

namespace {

using zel::uid;
using bytes = std::array<unsigned char, 16>;

bytes bytes_of(uid const & id) { return std::bit_cast<bytes>(id); }

constexpr uid example(0x0123ABCD, 0x4567, 0x89AB, {0xCD, 0xEF, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB});
static_assert(example == uid(example) && example != uid() && uid() == uid(0, 0, 0, {}));
static_assert(uid(0x00000001, 0, 0, {})
              > uid(0x00000100, 0, 0, {})); // the lowest byte is the first

TEST(uid, prints_small_letters_in_the_third_group_alone)
{
    EXPECT_EQ(example.to_string(), "{0123ABCD-4567-89ab-CDEF-0123456789AB}");
    EXPECT_EQ(uid().to_string(), "{00000000-0000-0000-0000-000000000000}");
    EXPECT_EQ(uid(0xABCDEF99, 0xABCD, 0xABCD, {0xFF, 0xEE, 0xDD, 0xCC, 0xBB, 0xAA, 0x9A, 0xA9})
                  .to_string(),
              "{ABCDEF99-ABCD-abcd-FFEE-DDCCBBAA9AA9}");
    std::ostringstream stream;
    stream << example;
    EXPECT_EQ(stream.str(), example.to_string());
}

TEST(uid, orders_by_its_bytes_in_memory)
{
    bytes const low = bytes_of(example);
    std::unordered_set<uid> distinct{example};
    for (std::size_t i = 0; i < low.size(); ++i) {
        for (unsigned change : {0x01U, 0x80U}) {
            bytes other = low;
            other[i] = static_cast<unsigned char>(other[i] ^ change);
            uid const a = example;
            uid const b = std::bit_cast<uid>(other);
            bool const less = std::memcmp(low.data(), other.data(), low.size()) < 0;
            EXPECT_TRUE((a < b) == less && (b < a) == !less && (a > b) == !less) << i;
            EXPECT_TRUE((a <= b) == less && (a >= b) == !less && a != b) << i;
            EXPECT_TRUE(distinct.insert(b).second);
        }
    }
    EXPECT_TRUE(distinct.contains(example));
    EXPECT_FALSE(example < example);
    // Numbers in a row, as a program of fixed identifiers has them, do not fall together.
    std::unordered_set<std::size_t> hashes;
    for (std::uint32_t i = 0; i < 1000; ++i) {
        hashes.insert(std::hash<uid>()(uid(i, 0, 0, {})) % 4096);
    }
    EXPECT_GT(hashes.size(), 750U); // 888 are expected of random hashes
}

TEST(uid, is_of_version_4_and_random_everywhere_else)
{
    constexpr int count = 4096;
    std::array<int, 128> ones{};
    for (int i = 0; i < count; ++i) {
        uid id;
        id.create();
        bytes const image = bytes_of(id);
        for (std::size_t bit = 0; bit < ones.size(); ++bit) {
            ones[bit] += image[bit / 8] >> bit % 8 & 1;
        }
    }
    for (std::size_t bit = 0; bit < ones.size(); ++bit) {
        SCOPED_TRACE(bit);
        if (bit >= 60 && bit < 64) {
            EXPECT_EQ(ones[bit], bit == 62 ? count : 0); // the upper half of byte 7 is 0100
        } else if (bit >= 70 && bit < 72) {
            EXPECT_EQ(ones[bit], bit == 71 ? count : 0); // byte 8 begins with 10
        } else {
            EXPECT_NEAR(ones[bit], count / 2, 320); // ten standard deviations
        }
    }
}

constexpr std::size_t ids_a_thread = 62'500;
constexpr std::size_t ids_a_process = 50 + 8 * ids_a_thread;

// What the calling thread still has at hand, then what eight threads make.
std::vector<uid> create_many()
{
    std::vector<uid> made(ids_a_process);
    std::for_each(made.begin(), made.begin() + 50, [](uid & id) { id.create(); });
    run_at_once(8, [&](int thread) {
        uid * const own = made.data() + 50 + static_cast<std::size_t>(thread) * ids_a_thread;
        std::for_each(own, own + ids_a_thread, [](uid & id) { id.create(); });
    });
    return made;
}

TEST(uid, never_repeats_in_eight_threads_of_two_processes)
{
    uid first;
    first.create(); // from here on this thread has bytes at hand that a child must not use
    constexpr std::size_t size = ids_a_process * sizeof(uid);
    void * const shared
        = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    child_process child([&] {
        std::memcpy(shared, create_many().data(), size);
        return true;
    });
    std::vector<uid> all = create_many();
    ASSERT_EQ(child.result(), 0);
    auto const * const of_child = static_cast<uid const *>(shared);
    all.insert(all.end(), of_child, of_child + ids_a_process);
    all.push_back(first);
    ::munmap(shared, size);
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
}

} // namespace
