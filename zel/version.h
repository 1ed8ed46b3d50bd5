// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"

/// \file
/// The version of the headers and of the library.

// CMake reads these three numbers.

/// Raised when programs may have to change; while it is 0 the minor number is.
#define ZEL_VERSION_MAJOR 0
/// Raised when something is added.
#define ZEL_VERSION_MINOR 1
/// Raised when faults are mended.
#define ZEL_VERSION_PATCH 0

/// One number to compare: 0.1.0 is 100, 1.2.3 is 10203.
#define ZEL_VERSION (ZEL_VERSION_MAJOR * 10000 + ZEL_VERSION_MINOR * 100 + ZEL_VERSION_PATCH)

namespace zel {
/// The version of the library that the program runs with, as a number like `ZEL_VERSION`. It differs
/// from the headers' when another library of the same soname was installed meanwhile.
ZEL_API int version() noexcept;
} // namespace zel
