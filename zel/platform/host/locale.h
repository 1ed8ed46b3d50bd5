// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// True if the decimal point of the calling thread's locale is ".". It reads one pointer: no lock,
/// no system call.
bool decimal_point_is_period() noexcept;

/// `strtod` in the "C" locale, whatever locale the program sets meanwhile. Leaves `errno`
/// unchanged.
/// \param end  receives the end of the number; `text` when there was none.
/// \throws std::bad_alloc
double c_locale_strtod(char const * text, char const ** end);

/// True if ASCII letters are the only bytes with upper and lower case in the calling thread's
/// locale. This holds in the "C" locale and in every encoding with characters of several bytes.
bool only_ascii_has_case() noexcept;

/// The byte in lower or upper case by the calling thread's locale.
char lower_in_locale(char c) noexcept;
char upper_in_locale(char c) noexcept;

} // namespace zel::platform
