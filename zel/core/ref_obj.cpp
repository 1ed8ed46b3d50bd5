// SPDX-License-Identifier: MIT
#include "zel/core/ref_obj.h"

namespace zel {

ref_obj::~ref_obj() = default;

} // namespace zel
