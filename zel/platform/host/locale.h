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

/// Whether no byte but the ASCII letters has a case in the calling thread's locale: so in the "C"
/// locale and with every encoding that may take several bytes for a character.
bool only_ascii_has_case() noexcept;

/// The byte in lower or upper case by the calling thread's locale.
char lower_in_locale(char c) noexcept;
char upper_in_locale(char c) noexcept;

} // namespace zel::platform
