// SPDX-License-Identifier: MIT
#include "zel/platform/waits/handles.h"

#include "zel/platform/last_error.h"
#include <cstring>

#include <sys/mman.h>

namespace zel::platform {

constinit atomic<handle_slot *> handle_table{nullptr};

namespace {

// Slots that were in use before: the low half is one more than the number of the first, 0 for none.
// The high half counts the changes, so that a pop that was overtaken by others notices it although
// the same slot is on top again.
constinit atomic<std::uint64_t> free_slots{0};
constinit atomic<std::uint32_t> used_slots{0}; // the rest was never touched

constexpr std::size_t table_size = most_handles * sizeof(handle_slot);
static_assert(table_size <= word_mask);

handle_slot * make_table()
{
    // Only address space: pages come with their first use, all zero.
    void * const memory = ::mmap(nullptr, table_size, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) {
        set_last_error(error_not_enough_memory);
        return nullptr;
    }
    auto * table = static_cast<handle_slot *>(memory);
    handle_slot * expected = nullptr;
    if (!handle_table.compare_exchange_strong(expected, table, std::memory_order_acq_rel)) {
        ::munmap(memory, table_size);
        table = expected;
    }
    return table;
}

std::uint64_t next_top(std::uint64_t top, std::uint32_t first)
{
    return ((top & ~word_mask) + (word_mask + 1)) | first;
}

handle_slot * pop(handle_slot * table)
{
    std::uint64_t top = free_slots.load(std::memory_order_acquire);
    while (word_of(top) != 0) {
        handle_slot & slot = table[word_of(top) - 1];
        std::uint32_t const next = slot.next_free.load(std::memory_order_relaxed);
        if (free_slots.compare_exchange_weak(top, next_top(top, next), std::memory_order_acquire)) {
            return &slot;
        }
    }
    return nullptr;
}

} // namespace

handle_slot * take_slot() noexcept
{
    handle_slot * table = handle_table.load(std::memory_order_acquire);
    if (table == nullptr && (table = make_table()) == nullptr) {
        return nullptr;
    }
    if (handle_slot * const slot = pop(table)) {
        std::memset(slot->room, 0, sizeof slot->room);
        return slot;
    }
    std::uint32_t used = used_slots.load(std::memory_order_relaxed);
    do {
        if (used == most_handles) {
            set_last_error(error_no_system_resources);
            return nullptr;
        }
    } while (!used_slots.compare_exchange_weak(used, used + 1, std::memory_order_relaxed));
    return table + used;
}

void * publish(handle_slot & slot, handle_kind kind, std::uint32_t word,
               std::uint32_t access) noexcept
{
    std::uint32_t const tag = ((tag_of(slot.state.load(std::memory_order_relaxed)) | 15) + 1)
        | static_cast<std::uint32_t>(kind);
    slot.access.store(access, std::memory_order_relaxed);
    slot.state.store(std::uint64_t{tag} << 32 | word, std::memory_order_release);
    slot.references.store(std::uint64_t{tag} << 32 | 1, std::memory_order_release);

    auto const distance = static_cast<std::uintptr_t>(
        reinterpret_cast<std::byte *>(&slot)
        - reinterpret_cast<std::byte *>(handle_table.load(std::memory_order_relaxed)));
    return reinterpret_cast<void *>(std::uintptr_t{tag} << 32 | distance);
}

bool pin(handle_slot & slot, void * handle) noexcept
{
    std::uint64_t references = slot.references.load(std::memory_order_relaxed);
    while (is_alive(references, handle)) {
        if (slot.references.compare_exchange_weak(references, references + 1,
                                                  std::memory_order_acquire)) {
            return true;
        }
    }
    return false;
}

bool unpin(handle_slot & slot) noexcept
{
    return word_of(slot.references.fetch_sub(1, std::memory_order_acq_rel)) == 1;
}

bool retire(handle_slot & slot, void * handle, std::uint32_t & word) noexcept
{
    // First no pin can be added, then no operation of the fast paths succeeds.
    std::uint64_t references = slot.references.load(std::memory_order_relaxed);
    do {
        if (!is_alive(references, handle)) {
            return false;
        }
    } while (!slot.references.compare_exchange_weak(references, references & word_mask));
    // The generation stays, for publish() to go on from.
    word = word_of(slot.state.fetch_and(~(std::uint64_t{15} << 32), std::memory_order_acq_rel));
    return true;
}

void free_slot(handle_slot & slot) noexcept
{
    handle_slot * const table = handle_table.load(std::memory_order_relaxed);
    auto const number = static_cast<std::uint32_t>(&slot - table) + 1;
    std::uint64_t top = free_slots.load(std::memory_order_relaxed);
    do {
        slot.next_free.store(word_of(top), std::memory_order_relaxed);
    } while (
        !free_slots.compare_exchange_weak(top, next_top(top, number), std::memory_order_release));
}

void for_each_slot(void (*function)(handle_slot & slot)) noexcept
{
    handle_slot * const table = handle_table.load(std::memory_order_acquire);
    std::uint32_t const used = used_slots.load(std::memory_order_acquire);
    for (std::uint32_t i = 0; i < used; ++i) {
        function(table[i]);
    }
}

} // namespace zel::platform
