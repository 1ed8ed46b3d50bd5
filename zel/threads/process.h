// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/ref_obj.h"

namespace zel {

/// A counted object without operations of its own, for programs that derive from it.
class ZEL_API process : public ref_obj {
public:
    process() noexcept = default;
    ~process() override;
};

static_assert(sizeof(process) == sizeof(ref_obj));

} // namespace zel
