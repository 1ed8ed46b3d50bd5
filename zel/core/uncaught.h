// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"

namespace zel {

/// Prints the message of an uncaught zel exception to the standard error output before the program
/// ends. The host's own report does not contain that message.
///
/// Call it once, for example at the start of `main`; a second call changes nothing. The handler
/// that `std::set_terminate` had at that time is called after the message.
/// \code
///     int main() {
///         zel::show_uncaught_exceptions();
///         zel::file log("missing", zel::file::mode_read, zel::file::kind_text);
///     }
///     // zel: uncaught exception: Zel IO Exception: Cannot open file missing
/// \endcode
ZEL_API void show_uncaught_exceptions() noexcept;

} // namespace zel
