// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Memory that all processes of one user share under a name.
///
/// The name is taken as long as any living process holds the block, and free the moment that the
/// last one gives it back or ends, is killed or calls exec; the next creation then makes a new
/// block. Nobody ever sees a block that is not initialised. Each call maps the block anew, so one
/// process may see it at several addresses.
///
/// The child of a fork has what the parent has, at the same addresses, and holds the names as the
/// parent does. A child that is about to call exec is not one that uses them: a creation, or an
/// opening, that finds nobody but children which have used no named object so far waits up to 50 ms
/// for their exec.
///
/// Names compare byte by byte after one leading `Local\` or `Global\`, which mean nothing here, has
/// been dropped. A name belongs to one kind of block.
///
/// A killed process cannot take its files away. The next creation or opening under that name does
/// that, and whoever meets such a file looks through the others; a process does so once at its first
/// use, at up to 64 of them. No descriptor stays open.
///
/// Any thread may call anything here; a caller that is told to stop does so afterwards. No call
/// waits for a process that is stopped, except that a name whose file another process is just taking
/// away is waited for up to 2 s. Nothing is taken from the heap, and no call is a cancellation point.
namespace zel::platform {

/// The longest name in bytes, its prefix included.
constexpr std::size_t longest_name = 260;

/// What is put into a new block, before others can find it.
struct named_memory_content {
    std::uint32_t kind; // any number but 0
    std::size_t size; // of the block; one size a kind
    /// Called with the block, all zero and aligned to 64 bytes, at the address where it stays.
    void (*initialize)(void * block, void const * argument) noexcept;
    /// Called in the place of `leave_named_memory` when another process was quicker; may be null.
    void (*withdraw)(void * block, void const * argument) noexcept;
    void const * argument;
};

/// One mapping. Plain data, so that it may lie in the room of a handle.
struct named_memory {
    void * block;
    std::size_t size; // of the block
    std::uint64_t file[2]; // what the name of the block's file is made of
    std::uint32_t entry; // this process's place among the holders
};

/// What a child of a fork has inherited; called once, before its first use of a named object.
using adopt_function = void (*)(std::uint64_t mark) noexcept;

/// Creates the block or joins the one that is there.
/// \param result   not touched on failure.
/// \param existed  whether the name was there; not touched on failure.
/// \returns false with last error 6 (the name belongs to another kind), 206 (too long), 8 (memory,
///          also in the host's shared memory), 4 (descriptors), 5 (what stands in the place of the
///          state is not this user's alone: another's file, a link, an open mode), 1450 (what
///          stands there is nothing that this version understands; more than 2 s for another process
///          to take the name's file away; too many processes hold it).
bool create_named_memory(std::string_view name, named_memory_content const & content,
                         named_memory & result, bool & existed) noexcept;

/// Joins a block that is there.
/// \returns false with last error 2 when there is none, else as above.
bool open_named_memory(std::string_view name, std::uint32_t kind, std::size_t size,
                       named_memory & result) noexcept;

/// Gives the name back as far as this mapping held it. The memory stays where it is. The last error
/// stays as well.
void leave_named_memory(named_memory const & memory) noexcept;

/// Once it is left.
void unmap_named_memory(named_memory const & memory) noexcept;

/// Sees to it that this process may use named objects: a forked child then holds what it has
/// inherited by itself.
/// \returns false with the last error set.
bool use_named_memory(adopt_function adopt) noexcept;

/// For `adopt`, with each mapping that the child has.
void adopt_named_memory(named_memory & memory, std::uint64_t mark) noexcept;

} // namespace zel::platform
