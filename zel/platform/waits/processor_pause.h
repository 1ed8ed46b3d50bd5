// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Tells the processor that the caller spins on a word. The processor then gives its resources to
/// the other thread of the core and does not speculate. Takes some tens of nanoseconds.
void processor_pause() noexcept;

/// How often a thread checks a lock before it sleeps. An owner that is running has usually released
/// the lock by then.
constexpr int looks_before_sleep = 60;

} // namespace zel::platform
