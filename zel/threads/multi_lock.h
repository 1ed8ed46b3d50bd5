// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include <list>

namespace zel {

class sync_obj;

/// Takes a list of locks and leaves all of them alone: it holds nothing and locks nothing.
///
/// It stands where programs name it. To hold several objects, take a `single_lock` of each, in the
/// same order everywhere.
class ZEL_API multi_lock {
public:
    /// Looks at nothing and keeps nothing.
    multi_lock(std::list<sync_obj *> const & objects);
    multi_lock(multi_lock const & other);
    multi_lock & operator=(multi_lock const & other);
    virtual ~multi_lock();
};

static_assert(sizeof(multi_lock) == sizeof(void *)); // it holds nothing

} // namespace zel
