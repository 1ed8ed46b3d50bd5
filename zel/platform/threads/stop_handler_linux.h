// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/threads/thread_record_linux.h"

namespace zel::platform {

/// Makes ready what stopping a thread needs, and takes the signal. Before the first thread starts.
void prepare_stops() noexcept;

/// Stops the calling thread, outside of `uninterrupted`, as long as it is told to. One that is to be
/// terminated may come back from here to leave the C library first, and is then stopped again.
void stop_here() noexcept;

} // namespace zel::platform
