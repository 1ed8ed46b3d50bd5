// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/waits/this_thread_linux.h"
#include <atomic>
#include <cstdint>

/// What becomes of mutexes whose owner ends.
namespace zel::platform {

/// Has the calling thread's end abandon what it owns.
/// \returns its `this_thread.owner_number`; 0 with last error 8.
std::uint32_t make_owner() noexcept;

/// What mutexes know the calling thread by.
inline std::uint32_t owner_number() noexcept
{
    return this_thread.owner_number != 0 ? this_thread.owner_number : make_owner();
}

/// The calling thread's count of the mutexes that it owns goes up or down by one.
inline void count_hold(std::uint32_t one) noexcept
{
    std::atomic<std::uint32_t> & holds = this_thread.holds;
    holds.store(holds.load(std::memory_order_relaxed) + one, std::memory_order_relaxed);
    signal_fence(); // the handler that terminates a thread reads it
}
constexpr std::uint32_t one_hold_less = 0xFFFFFFFF;

/// \name Whether a thread is there
/// For ends of owners that nobody tells. The number may be another thread's by now; then the answer
/// is true until that has ended too.
/// @{
bool exists_in_process(std::uint32_t thread) noexcept;
bool exists_in_namespace(std::uint32_t thread) noexcept;
/// @}

} // namespace zel::platform
