// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/waits/handles.h"
#include <cstdint>

/// The word of a mutex, the low half of a 64-bit state:
///
///     bits 0 to 29  the host's number of the thread that owns it, 0 for none
///     owner_died    the owner ended; the next owner reports the mutex as abandoned
///     waiters_flag  a thread may sleep
namespace zel::platform {

constexpr std::uint32_t waiters_flag = 0x80000000;
constexpr std::uint32_t owner_died = 0x40000000;
constexpr std::uint32_t thread_mask = 0x3FFFFFFF;

/// The result of a wait that ended because its thread is told to stop. The thread has left the
/// waiters and has passed on what it was given. It stops when it leaves `uninterrupted`, and then
/// waits again.
constexpr std::uint32_t wait_stopped = 0xFFFFFFFE;

inline bool has_owner(std::uint64_t state) noexcept { return (word_of(state) & thread_mask) != 0; }

inline atomic<std::uint32_t> const & low_word(atomic<std::uint64_t> const & state) noexcept
{
    void const * const address = &state;
    return *static_cast<atomic<std::uint32_t> const *>(address);
}

} // namespace zel::platform
