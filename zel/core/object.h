// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"

namespace zel {

/// A root that cannot be copied. It costs its derived classes no space.
class ZEL_API object_non_copy {
public:
    object_non_copy(object_non_copy const &) = delete;
    object_non_copy & operator=(object_non_copy const &) = delete;

protected:
    object_non_copy() noexcept = default;
    ~object_non_copy() = default;
};

/// A root with a virtual destructor, so that what derives from it can be destroyed through it.
class ZEL_API object : public object_non_copy {
protected:
    object() noexcept = default;
    virtual ~object() = default;
};

} // namespace zel
