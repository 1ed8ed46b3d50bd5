// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/objects/name_holders.h"
#include "zel/platform/objects/user_folder_linux.h"
#include <cstdint>

/// Which processes live, as the kernel tells it, in any pid namespace and without a number that could
/// be another's tomorrow.
///
/// A process picks a mark, a random even number of 40 bits, and locks the byte with that number in
/// the file `processes` of the user's folder for itself. The lock belongs to the open file (fcntl(2),
/// `F_OFD_SETLK`), and what keeps the file open is a mapping that forked children do not get
/// (madvise(2), `MADV_DONTFORK`). So the lock lasts exactly as long as the process's memory: until it
/// ends, is killed or calls exec. No descriptor stays open that somebody could close.
///
/// A forked child has its parent's handles. Until it uses one it shares a lock on the byte behind
/// its parent's mark, which tells of children without saying of how many. It lets go when it calls
/// exec; those that look for the holders of a name give it a moment for that.
namespace zel::platform {

/// 0: this process has no mark yet, or is a forked child that has used no handle with a name.
extern constinit atomic<std::uint64_t> known_process_mark;

/// Gives the process a mark if it has none, and sees to it that `processes` in that folder, which may
/// have been emptied, is the file that has the lock.
/// \param adopt  called with the new mark of a forked child before anybody learns it, for what it
///               has inherited; null when there is nothing.
/// \returns the mark; 0 with the last error set.
std::uint64_t register_process(user_folder const & folder,
                               void (*adopt)(std::uint64_t mark) noexcept) noexcept;

/// \returns a `process_life`; `itself_lives` when the host does not tell.
std::uint32_t life_of_process(std::uint64_t mark) noexcept;

/// A number that stands for the pid namespace of this process, in which numbers of threads mean what
/// they do here. Where the host does not tell it (without /proc), the process counts as alone in one.
/// The process has its mark.
std::uint64_t own_pid_namespace() noexcept;

/// Whether forked children may have a handle that this process closes.
bool has_forked_children() noexcept;

/// \name At a fork, for fork_handlers.h
/// @{
void prepare_inheritance() noexcept;
void leave_inheritance_to_child() noexcept; // in the parent
void inherit() noexcept; // in the child
/// @}

} // namespace zel::platform
