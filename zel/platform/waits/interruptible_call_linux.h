// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// Makes the system call, unless the low byte of `*control` is set, and returns the kernel's
/// result. If a signal arrives anywhere between the check of `*control` and the end of the call,
/// the result is -EINTR: the signal's handler calls `leave_interruptible_wait`, which moves the
/// thread from any instruction in between to the end. The fifth and the sixth argument of the call
/// are fixed. Each is needed by one of the two calls made this way and ignored by the other:
/// CLOCK_MONOTONIC for futex_waitv, all ones (FUTEX_BITSET_MATCH_ANY) for futex.
extern "C" [[gnu::visibility("hidden")]] std::int64_t
zel_interruptible_syscall(std::int64_t number, void const * a, std::int64_t b, std::int64_t c,
                          void const * d, void const * control);
