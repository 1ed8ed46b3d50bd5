// SPDX-License-Identifier: MIT
#pragma once

#if __cplusplus < 202002L
#error "zel needs C++20 or later: compile with -std=c++20"
#endif

#include "zel/base/standard_library.h"

/// Marks what leaves the shared library; everything else in it is hidden.
#define ZEL_API __attribute__((visibility("default")))

/// Has the compiler check the arguments of a member against its printf format. Positions count
/// from 1, and the object itself is number 1; 0 for `arguments` where a `va_list` is passed.
#define ZEL_PRINTF(text, arguments) __attribute__((format(printf, text, arguments)))
