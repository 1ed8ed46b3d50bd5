// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/threads/stopped_thread_linux.h"
#include <cstdint>

namespace zel::platform {

/// What suggests that a stopped thread holds a lock of the C library: of its heap, its loader, its
/// streams or anything else that it keeps to itself. The library tells nobody, so this goes by
/// where the thread stands, by the return addresses on its stack, and by the loader's lock.
enum class library_work {
    none,
    /// A return address on the stack leads into the library. That may be left over from an earlier
    /// call: stacks have places that nobody has written since.
    perhaps,
    /// It runs the library's own code, waits for one of its locks, is in a signal handler that
    /// interrupted that code, or holds the loader's lock.
    certainly,
};

/// Finds the library's code. Before the first thread starts.
void prepare_library_work() noexcept;

/// Whether an address lies in the library's code, not right at its beginning.
bool is_library_code(std::uintptr_t address) noexcept;

/// For the calling thread, from the handler of a signal that came without the thread's doing.
/// Allocates nothing and takes no lock.
/// \param stack_end   an address on its own stack above all frames of interest.
/// \param restorer    the return address of a signal handler.
library_work library_work_at(stopped_thread const & at, std::uintptr_t stack_end,
                             std::uintptr_t restorer) noexcept;

/// The same for a thread that has stopped of its own accord, in a wait of this layer: only the
/// loader's lock and code that a signal handler interrupted count.
library_work library_work_below(stopped_thread const & at, std::uintptr_t stack_end,
                                std::uintptr_t restorer) noexcept;

/// The same for a thread that has just returned from the library.
/// \param place,stack  where it goes on, with its stack pointer there.
library_work library_work_behind(std::uintptr_t place, std::uintptr_t stack,
                                 std::uintptr_t stack_end, std::uintptr_t restorer) noexcept;

struct frames_of_library {
    /// The place on the stack that holds the address to which the thread returns from the library;
    /// null when that cannot be told.
    std::uintptr_t * way_out;
    bool is_complete; // all frames of the thread were seen
    bool has_outer; // the library has called whoever called it
};

/// The frames themselves, for the calling thread in a signal's handler. Exact, but for what the
/// compiler has described: so from a place in the library or behind a call alone.
/// \param place  where to begin: the handler's own frames lie in front.
frames_of_library frames_from(std::uintptr_t place, std::uintptr_t stack_end) noexcept;

} // namespace zel::platform
