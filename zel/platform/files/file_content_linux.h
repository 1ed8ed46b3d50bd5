// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Copies a plain file's bytes into an empty one, within the kernel where it can, and leaves holes
/// as holes. Interrupted calls go on.
/// \returns false with `errno` set.
bool copy_content(int source, int target) noexcept;

} // namespace zel::platform
