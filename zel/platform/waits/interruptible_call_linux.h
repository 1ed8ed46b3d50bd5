// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// Makes the system call unless the low byte of `*control` is set, and returns what the kernel gives.
/// A signal that arrives anywhere between the look at `*control` and the end of the call makes it end
/// with -EINTR: its handler calls `leave_interruptible_wait`, which moves the thread from wherever it
/// is in between to the end. The fifth and the sixth argument of the call are what one of the two
/// calls made this way wants, and the other ignores: CLOCK_MONOTONIC for futex_waitv, all ones
/// (FUTEX_BITSET_MATCH_ANY) for futex.
extern "C" [[gnu::visibility("hidden")]] std::int64_t
zel_interruptible_syscall(std::int64_t number, void const * a, std::int64_t b, std::int64_t c,
                          void const * d, void const * control);
