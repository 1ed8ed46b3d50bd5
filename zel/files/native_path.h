// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/files/path.h"
#include <string>
#include <string_view>

namespace zel {

/// The path in the form of the host's own functions: `C:\tmp\x` gives `/tmp/x`, `a\b` gives `a/b`.
///
/// Drive `C:` is the host's root. A path with another drive or a server has no name on this host;
/// it gives the empty text, which no host function opens. A drive without a backslash (`C:a`)
/// counts from the root too, because there is only one current folder.
ZEL_API std::string to_native(path const & source);

/// The path for a name of the host: `/tmp/x` gives `C:\tmp\x`, `a/b` gives `a\b`.
/// \throws std::invalid_argument  when the name has a backslash or a NUL inside.
/// \throws std::length_error      when the path would have more than 259 bytes.
ZEL_API path from_native(std::string_view name);

} // namespace zel
