// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

/// The atomic words of the lock-free protocols. They go by these names so that tests/explorer can
/// put a header of the same name in front of this one: its words let a scheduler decide at every
/// step which thread goes on.
namespace zel {

template <class T> using atomic = std::atomic<T>;

/// Keeps the compiler from moving memory accesses across it, for what a signal handler of the same
/// thread, or the kernel at the thread's death, may see.
inline void signal_fence() noexcept { std::atomic_signal_fence(std::memory_order_seq_cst); }

} // namespace zel
