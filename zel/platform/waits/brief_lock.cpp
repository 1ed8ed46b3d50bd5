// SPDX-License-Identifier: MIT
#include "zel/platform/waits/brief_lock.h"

#include "zel/platform/waits/address_wait.h"

namespace zel::platform {

void brief_lock::lock() noexcept
{
    std::uint32_t free = 0;
    if (word_.compare_exchange_strong(free, 1, std::memory_order_acquire,
                                      std::memory_order_relaxed)) {
        return;
    }
    while (word_.exchange(2, std::memory_order_acquire) != 0) {
        wait_on_address(word_, 2, -1, false);
    }
}

void brief_lock::unlock() noexcept
{
    if (word_.exchange(0, std::memory_order_release) == 2) {
        wake_address(word_, 1, false);
    }
}

} // namespace zel::platform
