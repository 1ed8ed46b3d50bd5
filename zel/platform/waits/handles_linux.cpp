// SPDX-License-Identifier: MIT
#include "zel/platform/waits/handles.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/last_error.h"
#include <cstring>

#include <sys/mman.h>

namespace zel::platform {

constinit atomic<handle_slot *> handle_blocks[most_handles / slots_a_block]{};

namespace {

// The list of slots that were used before and are free now. The low half is one more than the
// number of the first slot, 0 for none. The high half counts the changes, so that a pop notices
// that others changed the list meanwhile, even if the same slot is on top again.
constinit atomic<std::uint64_t> free_slots{0};
constinit atomic<std::uint32_t> used{0}; // slots from here on were never used

constexpr std::size_t block_size = slots_a_block * sizeof(handle_slot);
static_assert(most_handles * sizeof(handle_slot) <= word_mask);

/// Maps the block of a slot.
bool make_block(std::uint32_t number)
{
    atomic<handle_slot *> & block = handle_blocks[number / slots_a_block];
    if (block.load(std::memory_order_acquire) != nullptr) {
        return true;
    }
    // The memory is all zero; a page takes memory only from its first use on.
    void * const memory
        = ::mmap(nullptr, block_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        return fail(error_not_enough_memory);
    }
    handle_slot * none = nullptr;
    if (!block.compare_exchange_strong(none, static_cast<handle_slot *>(memory),
                                       std::memory_order_acq_rel)) {
        ::munmap(memory, block_size);
    }
    return true;
}

std::uint64_t next_top(std::uint64_t top, std::uint32_t first)
{
    return ((top & ~word_mask) + (word_mask + 1)) | first;
}

// The acquire pairs with the release in free_slot. It need not see another thread's pop: then the
// exchange fails.
handle_slot * pop()
{
    std::uint64_t top = free_slots.load(std::memory_order_acquire);
    while (word_of(top) != 0) {
        handle_slot & slot = slot_numbered(word_of(top) - 1);
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
    if (handle_slot * const slot = pop()) {
        std::memset(slot->room, 0, sizeof slot->room);
        return slot;
    }
    std::uint32_t next = used.load(std::memory_order_relaxed);
    do {
        if (next == most_handles) {
            set_last_error(error_no_system_resources);
            return nullptr;
        }
        if (!make_block(next)) {
            return nullptr;
        }
    } while (!used.compare_exchange_weak(next, next + 1, std::memory_order_acq_rel,
                                         std::memory_order_relaxed));
    handle_slot & slot = slot_numbered(next);
    slot.number = next;
    return &slot;
}

void * publish(handle_slot & slot, handle_kind kind, std::uint32_t word,
               std::uint32_t access) noexcept
{
    std::uint32_t const tag = ((tag_of(slot.state.load(std::memory_order_relaxed)) | 15) + 1)
        | static_cast<std::uint32_t>(kind);
    slot.access.store(access, std::memory_order_relaxed);
    slot.state.store(std::uint64_t{tag} << 32 | word, std::memory_order_release);
    slot.references.store(std::uint64_t{tag} << 32 | 1, std::memory_order_release);

    return handle_of(slot, tag);
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

bool retire(handle_slot & slot, void * handle, std::uint32_t & word, handle_kind left) noexcept
{
    // First prevent new pins, then make the fast paths fail.
    std::uint64_t references = slot.references.load(std::memory_order_relaxed);
    do {
        if (!is_alive(references, handle)) {
            return false;
        }
    } while (!slot.references.compare_exchange_weak(references, references & word_mask));
    // The generation stays; publish() increments it.
    std::uint64_t state = slot.state.load(std::memory_order_relaxed);
    std::uint64_t const kind = std::uint64_t{15} << 32;
    while (!slot.state.compare_exchange_weak(
        state, (state & ~kind) | std::uint64_t{static_cast<std::uint32_t>(left)} << 32)) { }
    word = word_of(state);
    return true;
}

void free_slot(handle_slot & slot) noexcept
{
    std::uint64_t top = free_slots.load(std::memory_order_relaxed);
    do {
        slot.next_free.store(word_of(top), std::memory_order_relaxed);
    } while (!free_slots.compare_exchange_weak(top, next_top(top, slot.number + 1),
                                               std::memory_order_release));
}

std::uint32_t used_slots() noexcept { return used.load(std::memory_order_acquire); }

} // namespace zel::platform
