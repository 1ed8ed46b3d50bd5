// SPDX-License-Identifier: MIT
#include "zel/platform/waits/processor_pause.h"

namespace zel::platform {

void processor_pause() noexcept { __builtin_ia32_pause(); }

} // namespace zel::platform
