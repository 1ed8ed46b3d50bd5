// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/waits/this_thread_linux.h"
#include <atomic>
#include <cstdint>

/// What happens to mutexes whose owner ends: its end abandons them.
namespace zel::platform {

/// Registers the calling thread, so that its end abandons the mutexes that it owns.
/// \returns its `this_thread.owner_number`; 0 with last error 8.
std::uint32_t make_owner() noexcept;

/// The number by which mutexes know the calling thread; 0 with last error 8 when it cannot be
/// registered.
inline std::uint32_t owner_number() noexcept
{
    return this_thread.owner_number != 0 ? this_thread.owner_number : make_owner();
}

/// Changes the calling thread's count of the mutexes that it owns.
inline void count_hold(std::uint32_t one) noexcept
{
    std::atomic<std::uint32_t> & holds = this_thread.holds;
    holds.store(holds.load(std::memory_order_relaxed) + one, std::memory_order_relaxed);
    signal_fence(); // the handler that terminates a thread reads it
}
constexpr std::uint32_t one_hold_less = 0xFFFFFFFF;

/// \name Whether a thread exists
/// For owners whose end was not reported. The host may have given the number to another thread;
/// then the answer is true until that thread has ended too.
/// @{
bool exists_in_process(std::uint32_t thread) noexcept;
bool exists_in_namespace(std::uint32_t thread) noexcept;
/// @}

} // namespace zel::platform
