// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include <cstdint>

namespace zel::platform {

/// A lock for short work on the library's own data; take it inside `uninterrupted`. It allocates
/// nothing and needs no initialisation at run time.
class brief_lock {
public:
    void lock() noexcept;
    void unlock() noexcept;
    /// Frees the lock, in the child after a fork, where its holder may not exist.
    void reset() noexcept { word_.store(0, std::memory_order_relaxed); }

private:
    atomic<std::uint32_t> word_{0}; // 0 free, 1 held, 2 held and someone may sleep
};

} // namespace zel::platform
