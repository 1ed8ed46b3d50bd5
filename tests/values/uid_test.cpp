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
    std::ostringstream stream;
    stream << example << uid()
           << uid(0xABCDEF99, 0xABCD, 0xABCD, {0xFF, 0xEE, 0xDD, 0xCC, 0xBB, 0xAA, 0x9A, 0xA9});
    EXPECT_EQ(stream.str(),
              "{0123ABCD-4567-89ab-CDEF-0123456789AB}"
              "{00000000-0000-0000-0000-000000000000}"
              "{ABCDEF99-ABCD-abcd-FFEE-DDCCBBAA9AA9}");
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
            EXPECT_TRUE((a <= b) == less && (a >= b) == !less && a != b && !(b < b)) << i;
            EXPECT_TRUE(distinct.insert(b).second && distinct.contains(example));
        }
    }
}

TEST(uid, is_of_version_4_and_random_everywhere_else)
{
    bytes all_ones, any_one{};
    all_ones.fill(0xFF);
    for (int i = 0; i < 200; ++i) {
        uid id;
        id.create();
        bytes const image = bytes_of(id);
        for (std::size_t byte = 0; byte < image.size(); ++byte) {
            all_ones[byte] &= image[byte];
            any_one[byte] |= image[byte];
        }
    }
    for (std::size_t byte = 0; byte < all_ones.size(); ++byte) {
        EXPECT_EQ(all_ones[byte], byte == 7 ? 0x40 : byte == 8 ? 0x80 : 0) << byte;
        EXPECT_EQ(any_one[byte], byte == 7 ? 0x4F : byte == 8 ? 0xBF : 0xFF) << byte;
    }
}

TEST(uid, never_repeats_in_eight_threads_of_two_processes)
{
    constexpr std::size_t of_each = 5000;
    constexpr std::size_t of_process = 9 * of_each;
    std::vector<uid> all(2 * of_process);
    all[0].create(); // from here on this thread has bytes at hand that a child must not use
    constexpr std::size_t size = of_process * sizeof(uid);
    void * const shared
        = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(shared, MAP_FAILED);
    auto * const of_child = static_cast<uid *>(shared);
    auto const create
        = [](uid * first) { std::for_each(first, first + of_each, [](uid & id) { id.create(); }); };
    auto const create_all = [&](uid * first) {
        create(first);
        run_at_once(8, [&](int thread) { create(first + (thread + 1) * std::ptrdiff_t{of_each}); });
        return true;
    };
    child_process child([&] { return create_all(of_child); });
    create_all(all.data());
    ASSERT_EQ(child.result(), 0);
    std::copy(of_child, of_child + of_process, all.begin() + of_process);
    ::munmap(shared, size);
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
}

} // namespace
