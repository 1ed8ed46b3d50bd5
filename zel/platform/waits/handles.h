// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include <bit>
#include <cstddef>
#include <cstdint>

/// The process's table of handles, shared by kernel objects and threads.
///
/// A handle is a number in the form of a pointer. Its low half is 128 times the number of a slot.
/// Its high half is a tag that belongs to one use of the slot. The slot's `state` repeats the tag
/// beside the object's own 32-bit word:
///
///     handle        63 ... 36 generation   35 ... 32 kind   31 ... 0 the slot's number times 128
///     slot.state    63 ... 36 generation   35 ... 32 kind   31 ... 0 word of the object
///
/// So one load tells whether a handle is alive. A compare-and-exchange of the whole state changes
/// the object and at the same time proves that the handle was still alive: a stale handle never
/// changes the next object in the same slot. The table grows by blocks of 512 slots, 64 KiB each,
/// so that a process that locks all its memory in RAM (mlockall(2)) pays only for what it uses.
/// Blocks are never freed, so any value may be looked up. Nothing here takes a lock.
///
/// Invariants:
/// - A slot is on the list of free slots or has one user: `take_slot` gives it to one thread, and
///   only the thread that drops the last reference puts it back. The list's head counts its
///   changes, so a pop fails when the list has changed meanwhile.
/// - `references` holds the tag as long as the handle is alive. `pin` checks the tag and adds a
///   reference in one step. So a pinned slot is not reused, even if the handle is closed meanwhile.
/// - `retire` first prevents new pins, then makes the fast paths fail. Of several callers one
///   succeeds.
/// - A thread that sees a handle alive in `state` or `references` with acquire sees the object as
///   `publish` stored it (release). What a thread did with the object before its `unpin` (release)
///   is visible to the thread that drops the last reference, and through the list of free slots to
///   the slot's next user.
/// - `publish` increments the generation: a handle of an earlier use equals one of a later use only
///   after 2^28 uses of the slot.
///
/// The life of a slot:
///
///     take_slot()     no other thread knows it; fill in `room`
///     publish()       the handle exists; the slot has one reference, that of the handle
///     pin(), unpin()  a reference for a thread that sleeps on the object or reads its `room`
///     retire()        the handle is dead for all threads, also for those inside an operation
///     unpin()         the thread whose retire() succeeded drops the reference of the handle
///     free_slot()     the thread that drops the last reference cleans `room` up and calls this
///
/// A fork copies the table: the child's handles work on the child's own copy of what is in `room`.
namespace zel::platform {

enum class handle_kind : std::uint32_t {
    none, // a free or a retired slot
    auto_event,
    manual_event,
    mutex,
    semaphore,
    thread,
    named_event, // auto-reset and manual-reset
    named_mutex,
    named_semaphore,
    closed_mutex, // the handle was closed while threads sleep on the mutex
};

struct alignas(128) handle_slot {
    atomic<std::uint64_t> state; // tag and word, as above
    atomic<std::uint32_t> access; // rights of the handle
    std::uint32_t number; // of this slot; never changes
    /// The object. Members that are read without a pin are atomic, because the slot may be reused.
    alignas(8) std::byte room[96];
    atomic<std::uint32_t> next_free; // used by the list of free slots
    /// High half: the tag while the handle is alive. Low half: the number of references, one for
    /// the handle and one for each pin. Not in the cache line of the state: a thread that waits
    /// changes it, and the state is what the owner of a mutex needs.
    atomic<std::uint64_t> references;
};
static_assert(sizeof(handle_slot) == 128);
static_assert(std::endian::native == std::endian::little); // the word is the state's first half

/// The maximum number of handles of a process.
constexpr std::size_t most_handles = std::size_t{1} << 20;

constexpr std::size_t slots_a_block = 512;

/// The blocks of the table; a block is null until it is needed.
extern constinit atomic<handle_slot *> handle_blocks[most_handles / slots_a_block];

constexpr std::uint64_t word_mask = 0xFFFFFFFF;

constexpr std::uint32_t tag_of(std::uint64_t state_or_handle) noexcept
{
    return static_cast<std::uint32_t>(state_or_handle >> 32);
}

constexpr std::uint32_t word_of(std::uint64_t state) noexcept
{
    return static_cast<std::uint32_t>(state);
}

/// `state` with its word replaced.
constexpr std::uint64_t with_word(std::uint64_t state, std::uint32_t word) noexcept
{
    return (state & ~word_mask) | word;
}

/// The kind in the handle's tag. It is valid only if the handle is alive.
inline handle_kind kind_of(void * handle) noexcept
{
    return static_cast<handle_kind>(tag_of(reinterpret_cast<std::uintptr_t>(handle)) & 15);
}

/// The slot that the handle refers to. Any value may be passed.
/// \returns null when the value refers to no slot. A slot that is returned may belong to another
///          handle.
inline handle_slot * slot_of(void * handle) noexcept
{
    constexpr std::uint32_t distances = (most_handles - 1) * sizeof(handle_slot);
    auto const distance = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(handle));
    if ((distance & ~distances) != 0) {
        return nullptr;
    }
    std::uint32_t const number = distance / sizeof(handle_slot);
    handle_slot * const block
        = handle_blocks[number / slots_a_block].load(std::memory_order_acquire);
    return block == nullptr ? nullptr : block + number % slots_a_block;
}

/// The slot with this number, which must have been taken at some time.
inline handle_slot & slot_numbered(std::uint32_t number) noexcept
{
    return handle_blocks[number / slots_a_block].load(
        std::memory_order_acquire)[number % slots_a_block];
}

/// The handle that this tag and this slot make.
inline void * handle_of(handle_slot const & slot, std::uint32_t tag) noexcept
{
    return reinterpret_cast<void *>(std::uintptr_t{tag} << 32 | slot.number * sizeof(handle_slot));
}

/// True if the handle was alive when `state` was loaded from its slot.
inline bool is_alive(std::uint64_t state, void * handle) noexcept
{
    return tag_of(state) == tag_of(reinterpret_cast<std::uintptr_t>(handle))
        && kind_of(handle) != handle_kind::none;
}

/// The address of the object's word, for wait_on_address and wake_address, which only pass it on.
/// Read and change the word as part of `state`.
inline atomic<std::uint32_t> const & address_of_word(handle_slot const & slot) noexcept
{
    void const * const address = &slot.state;
    return *static_cast<atomic<std::uint32_t> const *>(address);
}

/// Takes a slot for a new object; its `room` is all zero.
/// \returns null with last error 8 or, when a million handles are open, 1450.
handle_slot * take_slot() noexcept;

/// Makes the handle of a slot from `take_slot` valid, and returns it.
void * publish(handle_slot & slot, handle_kind kind, std::uint32_t word,
               std::uint32_t access) noexcept;

/// Adds a reference if the handle is alive.
bool pin(handle_slot & slot, void * handle) noexcept;

/// \returns true when this was the last reference: the caller cleans up and calls `free_slot`.
bool unpin(handle_slot & slot) noexcept;

/// Ends the handle. The word stays as it was, beside a tag that no handle has. The steps are
/// sequentially consistent.
/// \param left  the kind in that tag.
/// \param word  receives the word, in the one call that ended the handle.
/// \returns true for the one caller that ended the handle; false for all others and when it was not
///          alive.
bool retire(handle_slot & slot, void * handle, std::uint32_t & word,
            handle_kind left = handle_kind::none) noexcept;

/// Frees a slot without references: one that was never published, or one after its last unpin.
void free_slot(handle_slot & slot) noexcept;

/// How many slots were ever taken. Their numbers are 0 to one less.
std::uint32_t used_slots() noexcept;

/// Calls `function(slot)` for each of them, in use or not. The function has to check `state` and
/// `references`; other threads may be using the slots.
template <typename Function> void for_each_slot(Function const & function)
{
    std::uint32_t const used = used_slots();
    for (std::uint32_t i = 0; i < used; ++i) {
        function(slot_numbered(i));
    }
}

/// \name Handles of kind `thread`, for wait_for_single_object and close_handle
/// @{
/// \param until  nanoseconds of the monotonic clock; negative for no limit, 0 only tests.
/// \returns 0, 258, or 0xFFFFFFFF with last error 6.
std::uint32_t wait_for_thread(void * handle, std::int64_t until) noexcept;
/// \returns false with last error 6.
bool close_thread(void * handle) noexcept;
/// @}

} // namespace zel::platform
