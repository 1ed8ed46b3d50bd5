// SPDX-License-Identifier: MIT
#include "zel/threads/multi_lock.h"

namespace zel {

multi_lock::multi_lock(std::list<sync_obj *> const &) { }

multi_lock::multi_lock(multi_lock const &) = default;

multi_lock & multi_lock::operator=(multi_lock const &) = default;

multi_lock::~multi_lock() = default;

} // namespace zel
