// SPDX-License-Identifier: MIT
// What a debugger has to know of the classes that its printers show.
//
// A compiler describes a class with virtual members in one place, beside its table of virtual
// members, which is in the library. A release has no descriptions, and all that a program's
// debugger would show of such an object is that its type is incomplete. This file is compiled with
// descriptions whatever the kind of build. It adds no code.

#include "zel/files/path.h"
#include "zel/text/buffer.h"
#include "zel/values/time.h"
#include "zel/values/timer.h"

namespace zel {
namespace {

struct described {
    buffer * a_buffer;
    path * a_path;
    time * a_time;
    timer * a_timer;
};

[[gnu::used]] constinit described const keeps_the_descriptions{};

} // namespace
} // namespace zel
