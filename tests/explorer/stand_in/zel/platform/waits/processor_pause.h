// SPDX-License-Identifier: MIT
#pragma once

/// Looking again and again tells nothing new where only one thread runs at a time.
namespace zel::platform {
inline void processor_pause() noexcept { }
constexpr int looks_before_sleep = 1;
} // namespace zel::platform
