// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include <cstdint>

namespace zel::platform {

/// A lock for short work on the library's own data, taken inside `uninterrupted`. It needs no
/// memory and no initialisation.
class brief_lock {
public:
    void lock() noexcept;
    void unlock() noexcept;
    /// In the child after a fork: free, whoever had it.
    void reset() noexcept { word_.store(0, std::memory_order_relaxed); }

private:
    atomic<std::uint32_t> word_{0}; // 0 free, 1 held, 2 held and someone may sleep
};

} // namespace zel::platform
