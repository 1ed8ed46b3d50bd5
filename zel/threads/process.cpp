// SPDX-License-Identifier: MIT
#include "zel/threads/process.h"

namespace zel {

process::~process() = default;

} // namespace zel
