// SPDX-License-Identifier: MIT
// What a debugger has to know of the classes that its printers show.
//
// A compiler describes a class with virtual members in one place, beside its table of virtual
// members, which is in the library. A release has no descriptions, and all that a program's
// debugger would show of such an object is that its type is incomplete. This file is compiled with
// them whatever the kind of build; it adds no code.

#include "zel/core/auto_ptr.h"
#include "zel/core/ref_obj.h"
#include "zel/files/path.h"
#include "zel/text/buffer.h"
#include "zel/values/time.h"
#include "zel/values/timer.h"
#include "zel/values/uid.h"
#include "zel/values/variant.h"

namespace zel {

extern __attribute__((visibility("hidden"))) void const * const described_types[];
void const * const described_types[] = {
    static_cast<ref_obj *>(nullptr), static_cast<buffer *>(nullptr), static_cast<path *>(nullptr),
    static_cast<time *>(nullptr),    static_cast<timer *>(nullptr),
};

} // namespace zel
