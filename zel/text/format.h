// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include <cstdarg>
#include <cstddef>
#include <string>

namespace zel {

/// Replaces `target` by exactly what `vsnprintf` would write. One pass is enough for a text of up
/// to 1 KiB and for every text of plain conversions; other texts need two.
///
/// The arguments and the format may point into `target`, which changes only when the text is
/// complete. An empty result leaves it unchanged.
/// \param arguments  consumed; the caller still has to call `va_end`.
/// \returns the length of the result.
/// \throws std::length_error      when the result is longer than 0x7FFFFFFF bytes.
/// \throws std::invalid_argument  when the runtime cannot format it, for example a wide text with a
///                                character that the locale's encoding lacks.
/// \throws std::bad_alloc
std::size_t format_into(std::string & target, char const * format_text, std::va_list arguments)
    ZEL_PRINTF(2, 0);

/// Does the same and discards the text: a conversion that fails still raises, and `%n` still
/// stores. Usually the text is only counted, whatever its length.
std::size_t format_and_drop(char const * format_text, std::va_list arguments) ZEL_PRINTF(1, 0);

} // namespace zel
