// SPDX-License-Identifier: MIT
#include "zel/profile/iprofile.h"

namespace zel {

iprofile::~iprofile() = default;

} // namespace zel
