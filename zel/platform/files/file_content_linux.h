// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Copies a plain file's bytes into an empty file, inside the kernel where possible, and keeps
/// holes. Interrupted calls are repeated.
/// \returns false with `errno` set.
bool copy_content(int source, int target) noexcept;

} // namespace zel::platform
