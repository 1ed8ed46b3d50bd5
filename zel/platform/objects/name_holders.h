// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include <cstdint>

/// Records which processes hold the name of a shared block. The words are in the block's file.
/// Every process changes them without a lock, and any process may be killed or stopped at any step.
///
///     entry   0, or the mark of a process (bits 24 to 63) and its number of handles (bits 0 to 23)
///     gate    open: twice the number of processes that have ever joined; closed for good: bit 0 is
///             set, and above it is the mark of the process that removes the file's name
///
/// The kernel tells whether the process with a mark lives (process_life_linux.h). So the entry of a
/// killed process is ignored although it was never cleared.
///
/// Invariants:
/// - A process that joins writes its entry first and then moves the gate. A process that closes the
///   gate reads it, checks all entries, and closes it in one step if it has not moved. So if a join
///   and a closing overlap, one of them fails and tries again: a block is closed only when no
///   process holds it, and no process holds a closed block. This and the order of two processes
///   that leave at once need all steps on entries and gate to be sequentially consistent.
/// - A closed block stays closed. Only the process that closed it removes the file's name, as long
///   as that process lives. So a name that leads to a closed block leads to it until its closer has
///   removed the name, and the closer never removes the name of another block.
namespace zel::platform {

/// What the kernel reports about a process: none, one or both of these bits.
enum process_life : std::uint32_t {
    is_over = 0,
    children_live = 1, // forked children that have its handles and have used none so far
    itself_lives = 2,
};

class name_holders {
public:
    using life_function = std::uint32_t (*)(std::uint64_t mark); // process_life
    static constexpr std::uint64_t most_handles_a_process = 0xFFFFFF;

    name_holders(atomic<std::uint64_t> & gate, atomic<std::uint64_t> * entries,
                 std::uint32_t count) noexcept
        : gate_(gate)
        , entries_(entries)
        , count_(count)
    {
    }

    /// Initialises the words in a new file that no other process can find yet.
    void begin(std::uint64_t mark) noexcept;

    enum class join_result { joined, closed, full };
    /// Adds a handle of the process with that mark.
    /// \param entry  receives the number to pass to `leave`.
    join_result join(std::uint64_t mark, life_function life_of, std::uint32_t & entry) noexcept;

    /// Removes one handle of the process with that mark. Does nothing if the entry is another
    /// process's: a forked child may give up a handle for which it has not joined yet.
    /// \param has_children  true if forked children may have the handle: the entry then stays for
    ///                      them.
    void leave(std::uint64_t mark, std::uint32_t entry, bool has_children) noexcept;

    /// The `process_life` bits of all holders, combined.
    /// \param own  the mark of the calling process, which lives.
    std::uint32_t life(std::uint64_t own, life_function life_of) const noexcept;

    /// Closes the gate for good if no living process holds the name.
    /// \returns true if this call closed it: the caller then removes the name.
    bool close_if_dead(std::uint64_t own, life_function life_of) noexcept;

    /// \returns the mark of the process that closed the gate, 0 when it is open.
    std::uint64_t closer() const noexcept;

    /// Replaces a closer that has ended by `own`.
    /// \returns true if this call did.
    bool succeed_closer(std::uint64_t closer, std::uint64_t own) noexcept;

private:
    atomic<std::uint64_t> & gate_;
    atomic<std::uint64_t> * entries_;
    std::uint32_t count_;
};

} // namespace zel::platform
