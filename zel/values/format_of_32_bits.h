// SPDX-License-Identifier: MIT
#pragma once

#include "zel/text/string.h"

namespace zel {

/// The printf format without the length modifiers that stand for more than an `int`: programs write
/// "%ld" for 32 bits, which the host would read as 64. Length modifiers of conversions other than
/// integers stay.
/// \throws memory_exception  `null_pointer` for a null format.
string format_of_32_bits(char const * format);

} // namespace zel
