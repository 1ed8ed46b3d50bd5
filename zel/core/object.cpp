// SPDX-License-Identifier: MIT
#include "zel/core/object.h"

namespace zel {

object::~object() = default;

} // namespace zel
