// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Gives the calling thread, which is new, the normal priority whatever its maker's is, as far as
/// the host lets it be raised.
void begin_at_normal_priority() noexcept;

} // namespace zel::platform
