// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Tells the processor that the caller looks at a word again and again: it then leaves its means to
/// the other thread of its core, and does not guess ahead. Some tens of nanoseconds.
void processor_pause() noexcept;

/// How often a thread looks at a lock before it sleeps: an owner that runs is mostly done by then.
constexpr int looks_before_sleep = 60;

} // namespace zel::platform
