// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zel::platform {

/// Memory that all processes of one user share under a name.
///
/// The name is taken as long as any living process holds the block, and free the moment that the
/// last one gives it back, ends or is killed; the next creation then makes a new block. Nobody ever
/// sees a block that is not initialised. A fork makes the child a holder of what the parent holds,
/// at the same addresses; an exec gives everything back. A process maps a name once and counts.
///
/// Names compare byte by byte after one leading `Local\` or `Global\`, which mean nothing here, has
/// been dropped. A name belongs to one kind of block.
///
/// A killed process cannot take its files away. That is done by the next creation or opening under
/// that name, and by every creation of a new block and every last release for whatever else it
/// finds (in turn 64 files a call, when a user has more of them). No descriptor stays open.
///
/// Any thread may call anything here, inside `uninterrupted` or not, but with no `brief_lock` held.
/// Nothing is taken from the heap.
class named_memory;

/// The longest name in bytes, its prefix included.
constexpr std::size_t longest_name = 260;

/// What is put into a new block, before others can find it.
struct named_memory_content {
    std::uint32_t kind; // any number but 0
    std::size_t size; // of the block, up to 1 GiB; one size a kind
    /// Called with the block, all zero and aligned to 64 bytes, and `argument`. Others may see the
    /// block before the creation returns, but not before this does.
    void (*initialize)(void * block, void const * argument) noexcept;
    void const * argument;
};

/// Creates the block or joins the one that is there.
/// \param result   takes the hold, in one step: a fork beside this call copies both the hold and
/// its
///                 place or none. Not touched on failure.
/// \param existed  whether the name was there; not touched on failure.
/// \returns false with last error 6 (the name belongs to another kind), 206 (too long), 8 (memory,
///          also in the host's shared memory), 4 (descriptors), 5 (what stands in the place of the
///          state is not this user's alone: another's file, a link, an open mode), 1450 (what
///          stands there is nothing that this version understands).
bool create_named_memory(std::string_view name, named_memory_content const & content,
                         named_memory *& result, bool & existed) noexcept;

/// Joins a block that is there.
/// \returns false with last error 2 when there is none, else as above.
bool open_named_memory(std::string_view name, std::uint32_t kind, std::size_t size,
                       named_memory *& result) noexcept;

/// The address is the same for all holds of the process.
void * block_of(named_memory const & memory) noexcept;
std::size_t size_of(named_memory const & memory) noexcept;

/// Takes one hold more.
void hold(named_memory & memory) noexcept;
/// Gives one hold back; with the last one of the process the addresses become invalid.
void release(named_memory & memory) noexcept;

} // namespace zel::platform
