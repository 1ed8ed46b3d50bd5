// SPDX-License-Identifier: MIT
#include "zel/platform/waits/processor_pause.h"

namespace zel::platform {

// Not `yield`, which most of these processors do nothing on.
void processor_pause() noexcept { asm volatile("isb"); }

} // namespace zel::platform
