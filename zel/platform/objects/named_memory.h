// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Memory that all processes of one user share under a name.
///
/// The name exists as long as any living process holds the block. It is free as soon as the last
/// holder gives the block back, ends, is killed or calls exec; the next creation then makes a new
/// block. No process ever sees a block that is not initialised. Each call maps the block again, so
/// one process may have it at several addresses.
///
/// The child of a fork has the parent's mappings at the same addresses, and holds the names as the
/// parent does. A child that is about to call exec does not count as a user: if the only holders
/// are children that have used no named object so far, a creation or an opening waits up to 50 ms
/// for their exec.
///
/// Names are compared byte by byte, after one leading `Local\` or `Global\` has been dropped; these
/// prefixes mean nothing here. A name belongs to one kind of block.
///
/// A killed process cannot remove its files. The next creation or opening under that name does
/// that, and then checks all other files too. Each process also checks up to 64 files at its first
/// use. No descriptor stays open.
///
/// Any thread may call any function; a thread that is told to stop does so after the call. No call
/// waits for a stopped process, with one exception: if another process is removing the file of the
/// name, the call waits for that, at most 20 s. No call allocates from the heap, and none is a
/// cancellation point.
namespace zel::platform {

/// The longest name in bytes, its prefix included.
constexpr std::size_t longest_name = 260;

/// The content of a new block, written before others can find it.
struct named_memory_content {
    std::uint32_t kind; // any number but 0
    std::size_t size; // of the block; one size a kind
    /// Called with the block at its final address; it is all zero and aligned to 64 bytes.
    void (*initialize)(void * block, void const * argument) noexcept;
    /// Called instead of `leave_named_memory` when another process created the name first; may be
    /// null.
    void (*withdraw)(void * block, void const * argument) noexcept;
    void const * argument;
};

/// One mapping. Plain data, so that it may lie in the room of a handle.
struct named_memory {
    void * block;
    std::size_t size; // of the block
    std::uint64_t file[2]; // the hash in the name of the block's file
    std::uint32_t entry; // of this process among the holders (name_holders.h)
};

/// Registers what a forked child has inherited; called once, before the child's first use of a
/// named object.
using adopt_function = void (*)(std::uint64_t mark) noexcept;

/// Creates the block, or joins an existing one.
/// \param result   unchanged on failure.
/// \param existed  receives whether the name existed; unchanged on failure.
/// \returns false with last error 6 (the name belongs to another kind), 206 (too long), 8 (out of
///          memory, also of the host's shared memory), 4 (out of descriptors), 5 (the folder or the
///          file does not belong to this user alone: another user's file, a link, or a mode that
///          gives others access), 1450 (this version does not understand the file; another process
///          needed more than 20 s to remove the name's file; too many processes hold it).
bool create_named_memory(std::string_view name, named_memory_content const & content,
                         named_memory & result, bool & existed) noexcept;

/// Joins an existing block.
/// \returns false with last error 2 when there is none, else as above.
bool open_named_memory(std::string_view name, std::uint32_t kind, std::size_t size,
                       named_memory & result) noexcept;

/// Gives up this mapping's hold of the name. The memory stays mapped, and the last error does not
/// change.
void leave_named_memory(named_memory const & memory) noexcept;

/// Unmaps a block that was left.
void unmap_named_memory(named_memory const & memory) noexcept;

/// Prepares this process for the use of named objects. A forked child then holds what it has
/// inherited in its own name.
/// \returns false with the last error set.
bool use_named_memory(adopt_function adopt) noexcept;

/// `adopt` calls it for each mapping that the child has inherited.
void adopt_named_memory(named_memory & memory, std::uint64_t mark) noexcept;

} // namespace zel::platform
