// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Gives the calling thread, a new one, the normal priority whatever the priority of its creator,
/// if the host permits raising it to that.
void begin_at_normal_priority() noexcept;

} // namespace zel::platform
