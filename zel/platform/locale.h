// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// Whether the calling thread's locale writes a number's decimal point as ".". It reads one
/// pointer; no lock, no system call.
bool decimal_point_is_period() noexcept;

/// `strtod` as the "C" locale has it, whatever locales the program sets meanwhile. The calling
/// thread's error number stays as it is.
/// \param end  receives where the number ended; `text` when there was none.
/// \throws std::bad_alloc
double c_locale_strtod(char const * text, char const ** end);

} // namespace zel::platform
