// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

/// The atomic words of the lock-free protocols. The protocols use these names, and not those of the
/// standard library, so that tests/explorer can substitute a header of the same name. The
/// explorer's words let a scheduler decide at each step which thread runs next.
namespace zel {

template <class T> using atomic = std::atomic<T>;

/// Keeps the compiler from moving memory accesses across this point. For memory that a signal
/// handler of the same thread reads, or that the kernel reads when the thread dies.
inline void signal_fence() noexcept { std::atomic_signal_fence(std::memory_order_seq_cst); }

} // namespace zel
