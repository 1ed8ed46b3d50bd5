// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include <bit>
#include <cstddef>
#include <cstdint>

/// The process's table of handles, shared by kernel objects and threads.
///
/// A handle is a number that looks like a pointer: its low half is 128 times the number of a slot,
/// its high half a tag that belongs to this one use of the slot. The slot's `state` repeats the tag
/// beside the object's own 32-bit word:
///
///     handle        63 ... 36 generation   35 ... 32 kind   31 ... 0 the slot's number times 128
///     slot.state    63 ... 36 generation   35 ... 32 kind   31 ... 0 word of the object
///
/// So one load tells whether a handle is alive, and a compare-and-exchange of the whole state both
/// changes the object and proves that the handle was still alive: a stale handle never changes the
/// next object in the same slot. The table grows by blocks of 512 slots, 64 KiB each, so that a
/// process that keeps all its memory in RAM (mlockall(2)) pays for what it uses. They are never
/// given back: any value may be looked at. Nothing here takes a lock.
///
/// What each step keeps:
/// - A slot is on the list of free slots or has one user: `take_slot` gives it to one thread, and
///   only whoever drops the last reference puts it back. The list's head counts its changes, so that
///   a pop that was overtaken fails.
/// - `references` has the tag as long as the handle is alive: `pin` adds to it in one step with that
///   look. So a pin keeps the slot from its next user, whoever closes the handle meanwhile.
/// - `retire` first ends the pins, then the fast paths; one of several callers succeeds.
/// - `publish` counts the generation up: no handle of an earlier use equals one of a later use until
///   2^28 uses of the slot are over.
///
/// The life of a slot:
///
///     take_slot()     nobody else knows it; fill in `room`
///     publish()       the handle exists; the slot has one reference, the handle's own
///     pin(), unpin()  a reference for whoever sleeps on the object or follows pointers in `room`
///     retire()        the handle is dead for everybody, those inside an operation included
///     unpin()         of the handle's own reference by the one whose retire() succeeded; whoever
///                     drops the last one cleans `room` up and calls
///     free_slot()
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
    named_event, // of both sorts
    named_mutex,
    named_semaphore,
    closed_mutex, // of no handle: threads sleep on a mutex whose handle was closed
};

struct alignas(128) handle_slot {
    atomic<std::uint64_t> state; // tag and word, as above
    /// The tag while the handle is alive, and in the low half the count: the handle's own reference
    /// and one a pin.
    atomic<std::uint64_t> references;
    atomic<std::uint32_t> access; // rights of the handle
    atomic<std::uint32_t> next_free; // the table's own
    std::uint32_t number; // the slot's own for good
    /// The object. What is read here without a pin is atomic, for the slot may change hands.
    alignas(8) std::byte room[96];
};
static_assert(sizeof(handle_slot) == 128);
static_assert(std::endian::native == std::endian::little); // the word is the state's first half

/// How many handles a process may have.
constexpr std::size_t most_handles = std::size_t{1} << 20;

constexpr std::size_t slots_a_block = 512;

/// The blocks of the table; null until they are needed.
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

/// The state with another word.
constexpr std::uint64_t with_word(std::uint64_t state, std::uint32_t word) noexcept
{
    return (state & ~word_mask) | word;
}

/// The kind that the handle claims; it is true when the handle is alive.
inline handle_kind kind_of(void * handle) noexcept
{
    return static_cast<handle_kind>(tag_of(reinterpret_cast<std::uintptr_t>(handle)) & 15);
}

/// The slot that the handle would live in: any value may be asked.
/// \returns null when it leads to no slot. Else the slot is there, but maybe not the handle's.
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

/// A slot that was taken at some time, by its number.
inline handle_slot & slot_numbered(std::uint32_t number) noexcept
{
    return handle_blocks[number / slots_a_block].load(
        std::memory_order_acquire)[number % slots_a_block];
}

/// The handle with this tag that lives or would live in the slot.
inline void * handle_of(handle_slot const & slot, std::uint32_t tag) noexcept
{
    return reinterpret_cast<void *>(std::uintptr_t{tag} << 32 | slot.number * sizeof(handle_slot));
}

/// Whether `state`, loaded from the handle's slot, says that the handle was alive then.
inline bool is_alive(std::uint64_t state, void * handle) noexcept
{
    return tag_of(state) == tag_of(reinterpret_cast<std::uintptr_t>(handle))
        && kind_of(handle) != handle_kind::none;
}

/// The object's word for wait_on_address and wake_address, which only pass its address on. Load and
/// change it as part of `state`.
inline atomic<std::uint32_t> const & address_of_word(handle_slot const & slot) noexcept
{
    void const * const address = &slot.state;
    return *static_cast<atomic<std::uint32_t> const *>(address);
}

/// A slot for a new object, its `room` all zero.
/// \returns null with last error 8 or, when a million handles are open, 1450.
handle_slot * take_slot() noexcept;

/// Makes the slot that `take_slot` gave the home of a living handle.
void * publish(handle_slot & slot, handle_kind kind, std::uint32_t word,
               std::uint32_t access) noexcept;

/// Adds a reference if the handle is alive.
bool pin(handle_slot & slot, void * handle) noexcept;

/// \returns true when this was the last reference: the caller cleans up and calls `free_slot`.
bool unpin(handle_slot & slot) noexcept;

/// Ends the handle. The word stays as it was, with a tag that no handle has. Sequentially consistent
/// with what the caller looks at next.
/// \param left  the kind in that tag.
/// \returns the word, for the one caller among several that ended it, through `word`; false for all
///          others and when it was not alive.
bool retire(handle_slot & slot, void * handle, std::uint32_t & word,
            handle_kind left = handle_kind::none) noexcept;

/// Gives back a slot without references: one that was never published, or after the last unpin.
void free_slot(handle_slot & slot) noexcept;

/// How many slots were ever taken: those with the lowest numbers.
std::uint32_t used_slots() noexcept;

/// Calls `function(slot)` for each of them. Looks at nothing, so that the caller judges by `state` and
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
