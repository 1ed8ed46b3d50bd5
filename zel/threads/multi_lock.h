// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include <list>

namespace zel {

class sync_obj;

/// Accepts a list of locks and ignores it: this class holds nothing and locks nothing.
///
/// It exists for programs that use the name. To hold several locks, make a `single_lock` for each,
/// in the same order everywhere.
class ZEL_API multi_lock {
public:
    /// Ignores its argument.
    multi_lock(std::list<sync_obj *> const & objects);
    multi_lock(multi_lock const & other);
    multi_lock & operator=(multi_lock const & other);
    virtual ~multi_lock();
};

static_assert(sizeof(multi_lock) == sizeof(void *)); // it holds nothing

} // namespace zel
