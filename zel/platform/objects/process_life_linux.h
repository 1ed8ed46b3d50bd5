// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/objects/name_holders.h"
#include "zel/platform/objects/user_folder_linux.h"
#include <cstdint>

/// Tells which processes live. The kernel answers, across pid namespaces, and without process
/// numbers, which the host may reuse.
///
/// Each process picks a mark, a random even number of 40 bits, and locks the byte with that number
/// in the file `processes` of the user's folder. The lock belongs to the open file (fcntl(2),
/// `F_OFD_SETLK`). A mapping keeps the file open, and forked children do not inherit that mapping
/// (madvise(2), `MADV_DONTFORK`). So the lock lasts exactly as long as the process's memory: until
/// the process ends, is killed or calls exec. No descriptor stays open that other code of the
/// process could close.
///
/// A forked child has its parent's handles. Until it uses one, it shares a lock on the byte after
/// its parent's mark, which shows that such children exist but not how many. The lock ends when the
/// child calls exec; a process that looks for the holders of a name waits a moment for that.
namespace zel::platform {

/// The mark of this process. 0: it has no mark yet, or is a forked child that has used no named
/// handle.
extern constinit atomic<std::uint64_t> known_process_mark;

/// Gives the process a mark if it has none. If the folder has been emptied meanwhile, takes the
/// lock in the new file `processes` too.
/// \param adopt  called with the new mark of a forked child before other processes can see it, to
///               register what the child has inherited; may be null.
/// \returns the mark; 0 with the last error set.
std::uint64_t register_process(user_folder const & folder,
                               void (*adopt)(std::uint64_t mark) noexcept) noexcept;

/// \returns a `process_life`; `itself_lives` when the host cannot answer.
std::uint32_t life_of_process(std::uint64_t mark) noexcept;

/// The number of this process's pid namespace, within which thread numbers are unique. If the host
/// does not tell it (without /proc), the process counts as alone in a namespace. The process must
/// have its mark.
std::uint64_t own_pid_namespace() noexcept;

/// True if forked children may have a handle that this process closes.
bool has_forked_children() noexcept;

/// \name At a fork, for fork_handlers.h
/// @{
void prepare_inheritance() noexcept;
void leave_inheritance_to_child() noexcept; // in the parent
void inherit() noexcept; // in the child
/// @}

} // namespace zel::platform
