// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>

namespace zel {

/// Called right after a sequentially consistent change of an atomic word, this makes the change a
/// full barrier: no memory access of the thread moves across it in either direction. On x86-64 such
/// a change is one by itself. On Arm it is not: a later load may come before the store half of the
/// change.
inline void complete_full_barrier() noexcept
{
#if !defined(__x86_64__)
    std::atomic_thread_fence(std::memory_order_seq_cst);
#endif
}

} // namespace zel
