// SPDX-License-Identifier: MIT
#include "zel/values/uid.h"

#include "tests/support/processes.h"
#include "tests/support/property.h"
#include "tests/support/threads_at_once.h"
#include <algorithm>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/mman.h>
#include <unordered_set>
#include <vector>

extern "C" property uid_property;

namespace {

using zel::uid;
using bytes = std::array<unsigned char, 16>;

bytes bytes_of(uid const & id) { return std::bit_cast<bytes>(id); }

constexpr uid example(0x0123ABCD, 0x4567, 0x89AB, {0xCD, 0xEF, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB});
static_assert(example == uid(example) && example != uid() && uid() == uid(0, 0, 0, {}));
static_assert(uid(0x00000001, 0, 0, {})
              > uid(0x00000100, 0, 0, {})); // the lowest byte is the first

TEST(uid, prints_itself_and_is_ordered_by_its_bytes_in_memory)
{
    std::ostringstream stream;
    stream << example;
    EXPECT_EQ(stream.str(), "{0123ABCD-4567-89ab-CDEF-0123456789AB}");
    EXPECT_TRUE(std::unordered_set<uid>{example}.contains(example));
    expect_for_any(uid_property, 10'000, [](auto & random) {
        std::string const one = any_bytes(random, 16, "\x7F\x80");
        std::string other = one;
        other[random() % 16] = static_cast<char>(random());
        return one + other;
    });
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
