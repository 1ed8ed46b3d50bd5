// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/threads/thread_record_linux.h"

namespace zel::platform {

/// Prepares stopping threads, and installs the signal's handler. Call it before the first thread
/// starts.
void prepare_stops() noexcept;

/// Stops the calling thread as long as it is requested; call it outside of `uninterrupted`. A
/// thread that is to be terminated may return from here to leave the C library first; it is then
/// stopped again.
void stop_here() noexcept;

} // namespace zel::platform
