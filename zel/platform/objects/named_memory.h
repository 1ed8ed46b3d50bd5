// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Memory that all processes of one user share under a name.
///
/// The name is taken as long as any living process has the block mapped, and free the moment that
/// the last mapping is given back or its process ends, is killed or calls exec; the next creation
/// then makes a new block. Nobody ever sees a block that is not initialised. The child of a fork
/// has what the parent has, at the same addresses. Each call maps the block anew, so one process
/// may see it at several addresses.
///
/// Names compare byte by byte after one leading `Local\` or `Global\`, which mean nothing here, has
/// been dropped. A name belongs to one kind of block.
///
/// A killed process cannot take its files away. That is done by the next creation or opening under
/// that name, and by every creation of a new block and every last release for whatever else it
/// finds (64 files a call, in turn, when a user has more of them). No descriptor stays open.
///
/// Any thread may call anything here, with no `brief_lock` held; a caller that is told to stop does
/// so afterwards. Calls wait for each other, also between processes, and a fork waits for those of
/// its process. Nothing is taken from the heap.
namespace zel::platform {

/// The longest name in bytes, its prefix included.
constexpr std::size_t longest_name = 260;

/// What is put into a new block, before others can find it.
struct named_memory_content {
    std::uint32_t kind; // any number but 0
    std::size_t size; // of the block; one size a kind
    /// Called with the block, all zero and aligned to 64 bytes, at the address where it stays.
    void (*initialize)(void * block, void const * argument) noexcept;
    void const * argument;
};

/// One mapping. Plain data, so that it may lie in the room of a handle.
struct named_memory {
    void * block;
    std::size_t size; // of the block
    std::uint64_t file[2]; // what the name of the block's file is made of
};

/// Creates the block or joins the one that is there.
/// \param result   filled in before a fork beside this call can happen; not touched on failure.
/// \param existed  whether the name was there; not touched on failure.
/// \returns false with last error 6 (the name belongs to another kind), 206 (too long), 8 (memory,
///          also in the host's shared memory), 4 (descriptors), 5 (what stands in the place of the
///          state is not this user's alone: another's file, a link, an open mode), 1450 (what
///          stands there is nothing that this version understands).
bool create_named_memory(std::string_view name, named_memory_content const & content,
                         named_memory & result, bool & existed) noexcept;

/// Joins a block that is there.
/// \returns false with last error 2 when there is none, else as above.
bool open_named_memory(std::string_view name, std::uint32_t kind, std::size_t size,
                       named_memory & result) noexcept;

/// Gives the mapping and, if it was the last, the name back.
void release_named_memory(named_memory const & memory) noexcept;

/// Gives the name back as far as this mapping held it, but leaves the memory where it is, until
/// `release_named_memory`.
/// \returns false, with nothing changed, when the host is out of memory or descriptors.
bool leave_named_memory(named_memory const & memory) noexcept;

} // namespace zel::platform
