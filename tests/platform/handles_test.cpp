// SPDX-License-Identifier: MIT
#include "zel/platform/waits/handles.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <gtest/gtest.h>
#include <set>
#include <thread>
#include <vector>

namespace {

using namespace zel::platform;

void * open(std::uint32_t word) { return publish(*take_slot(), handle_kind::semaphore, word, 0); }

// What kernel objects do at their closing.
bool close(void * handle)
{
    handle_slot * const slot = slot_of(handle);
    std::uint32_t word = 0;
    if (slot == nullptr || !retire(*slot, handle, word)) {
        return false;
    }
    if (unpin(*slot)) {
        free_slot(*slot);
    }
    return true;
}

bool alive(void * handle)
{
    handle_slot * const slot = slot_of(handle);
    return slot != nullptr && is_alive(slot->state.load(), handle);
}

TEST(handles, live_until_they_are_closed_once_and_their_slot_while_it_is_pinned)
{
    void * const first = open(7);
    EXPECT_EQ(kind_of(first), handle_kind::semaphore);
    EXPECT_EQ(word_of(slot_of(first)->state.load()), 7u);
    EXPECT_TRUE(close(first));
    EXPECT_FALSE(close(first));

    void * const second = open(8); // in the slot of the first
    handle_slot & slot = *slot_of(second);
    EXPECT_EQ(slot_of(first), &slot);
    EXPECT_FALSE(alive(first) || close(first));
    ASSERT_TRUE(pin(slot, second));
    EXPECT_TRUE(close(second));
    EXPECT_FALSE(alive(second) || pin(slot, second));

    void * const third = open(9);
    EXPECT_NE(slot_of(third), &slot);
    EXPECT_TRUE(unpin(slot));
    free_slot(slot);
    EXPECT_TRUE(close(third));
}

TEST(handles, refuse_any_other_value)
{
    void * const handle = open(1);
    auto const value = reinterpret_cast<std::uintptr_t>(handle);
    int local = 0;
    std::uintptr_t const rows[] = {
        0,
        1,
        ~std::uintptr_t{0},
        value + 1,
        value + sizeof(handle_slot), // a slot that was never taken
        value ^ (std::uintptr_t{1} << 32), // another kind
        value ^ (std::uintptr_t{1} << 63), // another generation
        value & word_mask,
        value | 0x80000000,
        reinterpret_cast<std::uintptr_t>(&local),
        reinterpret_cast<std::uintptr_t>(slot_of(handle)),
    };
    for (std::uintptr_t const row : rows) {
        SCOPED_TRACE(row);
        EXPECT_FALSE(alive(reinterpret_cast<void *>(row)));
        EXPECT_FALSE(close(reinterpret_cast<void *>(row)));
    }
    EXPECT_TRUE(close(handle));
}

} // namespace
