// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include <cstdarg>
#include <cstddef>
#include <string>

namespace zel {

/// Replaces `target` by what `vsnprintf` makes of the arguments, byte for byte, in one pass for a
/// text of up to 1 KiB and for every text of plain conversions, else in two.
///
/// The arguments and the format may point into `target`, which changes only once the text is
/// complete. An empty result leaves it as it was.
/// \param arguments  used up; the caller still ends it.
/// \returns the length of the result.
/// \throws std::length_error      when the result is longer than 0x7FFFFFFF bytes.
/// \throws std::invalid_argument  when the runtime cannot format it, as a wide text with a
///                                character that the locale's encoding lacks.
/// \throws std::bad_alloc
std::size_t format_into(std::string & target, char const * format_text, std::va_list arguments)
    ZEL_PRINTF(2, 0);

/// Does the same and keeps nothing, for a text that only has to be formatted: a conversion that
/// fails still raises, and `%n` still stores. The text is only counted as a rule, whatever its length.
std::size_t format_and_drop(char const * format_text, std::va_list arguments) ZEL_PRINTF(1, 0);

} // namespace zel
