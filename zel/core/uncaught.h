// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"

namespace zel {

/// Has the message of a zel exception that nobody catches written to the standard error output
/// before the program ends, which the host's own report leaves out.
///
/// To be called once, for example at the start of `main`; a second call changes nothing. Whatever
/// handler `std::set_terminate` knows at that time goes on being called, after the message.
/// \code
///     int main() {
///         zel::show_uncaught_exceptions();
///         zel::file log("missing", zel::file::mode_read, zel::file::kind_text);
///     }
///     // zel: uncaught exception: Zel IO Exception: Cannot open file missing
/// \endcode
ZEL_API void show_uncaught_exceptions() noexcept;

} // namespace zel
