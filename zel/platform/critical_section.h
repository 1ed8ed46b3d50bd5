// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>

namespace zel::platform {

/// A lock of one process that its owner may take again. All members are the functions' own.
struct critical_section {
    std::atomic<std::uint32_t> word; // 0 free, 1 held, 2 held and someone may sleep
    std::uint32_t count; // holds of the owner
    std::atomic<std::uint64_t> owner; // its number, never given twice; 0 for none
};

/// The calling thread's number; 0 until it is asked for.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local std::uint64_t own_section_number;
std::uint64_t give_section_number() noexcept;

/// \name What is seldom needed
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
    section.word.store(0, std::memory_order_relaxed);
    section.count = 0;
    section.owner.store(0, std::memory_order_relaxed);
}

/// Nobody holds it or waits for it.
inline void delete_critical_section(critical_section &) noexcept { }

/// \returns whether it is the caller's now; never waits.
inline bool try_enter_critical_section(critical_section & section) noexcept
{
    std::uint64_t const self = section_number();
    std::uint32_t free = 0;
    if (section.word.compare_exchange_strong(free, 1, std::memory_order_acquire,
                                             std::memory_order_relaxed)) {
        section.owner.store(self, std::memory_order_relaxed);
        section.count = 1;
        return true;
    }
    if (section.owner.load(std::memory_order_relaxed) == self) {
        ++section.count;
        return true;
    }
    return false;
}

/// Waits without limit. After a fork, what the forking thread held is held by the child's thread.
inline void enter_critical_section(critical_section & section) noexcept
{
    if (!try_enter_critical_section(section)) {
        wait_for_section(section);
    }
}

/// Does nothing for a thread that does not hold it.
inline void leave_critical_section(critical_section & section) noexcept
{
    if (section.owner.load(std::memory_order_relaxed) != section_number()) {
        return;
    }
    if (--section.count != 0) {
        return;
    }
    section.owner.store(0, std::memory_order_relaxed);
    std::uint32_t held = 1;
    if (!section.word.compare_exchange_strong(held, 0, std::memory_order_release,
                                              std::memory_order_relaxed)) {
        free_section_and_wake(section);
    }
}

} // namespace zel::platform
