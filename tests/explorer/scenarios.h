// SPDX-License-Identifier: MIT
#pragma once

#include "tests/explorer/explorer.h"
#include <vector>

namespace zel::explorer {

void add_waitables(std::vector<entry> & entries);
void add_mutexes(std::vector<entry> & entries);
void add_names_and_handles(std::vector<entry> & entries);

} // namespace zel::explorer
