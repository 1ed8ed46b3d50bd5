// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/threads/stopped_thread_linux.h"
#include <cstdint>

namespace zel::platform {

/// Tells whether a stopped thread may hold a lock of the C library: of its heap, its loader, its
/// streams or anything else inside it. The library has no interface for that. The answer is derived
/// from the instruction at which the thread stands, from the return addresses on its stack, and
/// from the loader's lock.
enum class library_work {
    none,
    /// There is a return address into the library on the stack. It may be left over from an earlier
    /// call: a stack frame may contain bytes that were never written.
    perhaps,
    /// The thread runs the library's own code, waits for one of its locks, is in a signal handler
    /// that interrupted that code, or holds the loader's lock.
    certainly,
};

/// Finds the library's code. Call it before the first thread starts.
void prepare_library_work() noexcept;

/// True if an address is inside a function of the library, not at its first instruction.
bool is_library_code(std::uintptr_t address) noexcept;

/// For the calling thread, called by the handler of an asynchronous signal. Allocates nothing and
/// takes no lock.
/// \param stack_end   an address on its own stack above all frames of interest.
/// \param restorer    the return address of a signal handler.
library_work library_work_at(stopped_thread const & at, std::uintptr_t stack_end,
                             std::uintptr_t restorer) noexcept;

/// The same for a thread that has stopped voluntarily, in a wait of this layer: only the loader's
/// lock, and library code that a signal handler interrupted, count.
library_work library_work_below(stopped_thread const & at, std::uintptr_t stack_end,
                                std::uintptr_t restorer) noexcept;

/// The same for a thread that has just returned from the library.
/// \param place,stack  where it continues, and its stack pointer there.
library_work library_work_behind(std::uintptr_t place, std::uintptr_t stack,
                                 std::uintptr_t stack_end, std::uintptr_t restorer) noexcept;

struct frames_of_library {
    /// The place on the stack that contains the address to which the thread returns from the
    /// library; null when that is unknown.
    std::uintptr_t * way_out;
    bool is_complete; // all frames of the thread were seen
    bool has_outer; // the library's caller was itself called by the library
};

/// Unwinds the frames of the calling thread in a signal handler. The result is exact where the
/// compiler described the frames, that is, starting in the library or behind a call.
/// \param place  where to begin: the handler's own frames come before it.
frames_of_library frames_from(std::uintptr_t place, std::uintptr_t stack_end) noexcept;

} // namespace zel::platform
