// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include <cstdint>

namespace zel::platform {

/// A lock within one process that its owner may take again. Only the functions below use the
/// members.
struct critical_section {
    atomic<std::uint64_t> state; // 0 free, else the owner's number, plus 1 if a thread may sleep
    std::uint32_t more_holds; // of the owner, beyond the first; 0 for a free one
};

/// The calling thread's number. It is even and never reused; 0 until the first use.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local std::uint64_t own_section_number;
std::uint64_t give_section_number() noexcept;

/// \name Slow paths
/// @{
void wait_for_section(critical_section & section) noexcept;
void free_section_and_wake(critical_section & section) noexcept;
/// @}

inline std::uint64_t section_number() noexcept
{
    return own_section_number != 0 ? own_section_number : give_section_number();
}

inline void initialize_critical_section(critical_section & section) noexcept
{
    section.state.store(0, std::memory_order_relaxed);
    section.more_holds = 0;
}

/// No thread may hold it or wait for it.
inline void delete_critical_section(critical_section &) noexcept { }

/// \returns true if the caller owns it now; never waits.
inline bool try_enter_critical_section(critical_section & section) noexcept
{
    std::uint64_t const self = section_number();
    std::uint64_t before = 0;
    if (section.state.compare_exchange_strong(before, self, std::memory_order_acquire,
                                              std::memory_order_relaxed)) {
        return true;
    }
    if ((before & ~std::uint64_t{1}) == self) {
        ++section.more_holds;
        return true;
    }
    return false;
}

/// Waits without limit. After a fork, the child's thread holds what the forking thread held.
inline void enter_critical_section(critical_section & section) noexcept
{
    if (!try_enter_critical_section(section)) {
        wait_for_section(section);
    }
}

/// Does nothing if the calling thread does not hold it.
inline void leave_critical_section(critical_section & section) noexcept
{
    std::uint64_t self = own_section_number;
    if ((section.state.load(std::memory_order_relaxed) & ~std::uint64_t{1}) != self || self == 0) {
        return;
    }
    if (section.more_holds != 0) {
        --section.more_holds;
        return;
    }
    if (!section.state.compare_exchange_strong(self, 0, std::memory_order_release,
                                               std::memory_order_relaxed)) {
        free_section_and_wake(section);
    }
}

} // namespace zel::platform
