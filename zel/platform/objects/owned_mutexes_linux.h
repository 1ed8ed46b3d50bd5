// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/waits/this_thread_linux.h"
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

} // namespace zel::platform
