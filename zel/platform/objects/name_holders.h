// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include <cstdint>

/// Who holds the name of a shared block: words in the block's file that every process changes
/// without a lock, and any of which may be killed or stopped at any step.
///
///     entry   0, or the mark of a process (bits 24 to 63) and how many handles it has (bits 0 to 23)
///     gate    twice the number of processes that have ever joined; or, with bit 0 set, closed for
///             good, and above that the mark of the process that takes the name away
///
/// Whether the process behind a mark lives is the kernel's to say (process_life_linux.h), so an
/// entry whose process was killed counts for nothing without anybody having cleared it.
///
/// What each step keeps:
/// - Whoever joins writes its entry first and then moves the gate. Whoever closes the gate looks at
///   it, then at all entries, and then closes it in one step if it has not moved. So of a join and a
///   closing that meet one fails and looks again: a block is closed only when nobody holds it, and
///   nobody holds a closed one.
/// - A closed block stays so. The process that closed it takes the file's name away, and nobody else
///   as long as that process lives: a name that leads to a closed block leads to it until its closer
///   has taken it away, and the closer never takes another block's name away.
namespace zel::platform {

/// What the kernel tells of a process: one of these, both or none.
enum process_life : std::uint32_t {
    is_over = 0,
    children_live = 1, // that it forked, which have its handles and have used none so far
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

    /// In a new file that nobody else can find yet.
    void begin(std::uint64_t mark) noexcept;

    enum class join_result { joined, closed, full };
    /// Adds a handle of the process with that mark.
    /// \param entry  takes the number for `leave`.
    join_result join(std::uint64_t mark, life_function life_of, std::uint32_t & entry) noexcept;

    /// Takes a handle of the process away.
    /// \param has_children  whether forked children may have the handle: then the entry stays for
    ///                      them.
    void leave(std::uint32_t entry, bool has_children) noexcept;

    /// What is true of the holders together.
    /// \param own  the mark of the calling process, which lives.
    std::uint32_t life(std::uint64_t own, life_function life_of) const noexcept;

    /// Closes the gate for good if nobody but the dead holds the name.
    /// \returns whether this call did, so that the caller takes the name away.
    bool close_if_dead(std::uint64_t own, life_function life_of) noexcept;

    /// \returns the mark of the process that closed the gate, 0 when it is open.
    std::uint64_t closer() const noexcept;

    /// Puts `own` in the place of a closer that has ended.
    /// \returns whether this call did.
    bool succeed_closer(std::uint64_t closer, std::uint64_t own) noexcept;

private:
    atomic<std::uint64_t> & gate_;
    atomic<std::uint64_t> * entries_;
    std::uint32_t count_;
};

} // namespace zel::platform
