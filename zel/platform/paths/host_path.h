// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

/// Between the texts of paths and the names that the host's own functions take. Nothing is
/// allocated. A `result` is an array of `max_path` bytes.
namespace zel::platform {

/// `C:\tmp\x` gives `/tmp/x`, `a\b` gives `a/b`, a lone backslash `/`. `\\?\C:\x` is `C:\x`. A text
/// with `..` in it or a `.` at its end is resolved first, so that `a\..\b` is `b` whatever `a` is,
/// and `a\.` is the link `a` and not what it leads to.
/// \returns false with the last error `error_path_not_found` and an empty result for the empty
///          text, for another drive and for a server; `error_filename_exced_range` when the text
///          has more than 259 bytes.
bool to_host_path(char * result, char const * text) noexcept;

/// `/tmp/x` gives `C:\tmp\x`, `a/b` gives `a\b`; `c:x` gives `.\c:x`, since alone it would be a drive.
/// \returns false with an empty result and the last error `error_bad_pathname` for a name with a
///          backslash or a NUL inside, `error_filename_exced_range` for one that is too long.
bool from_host_path(char * result, std::string_view host) noexcept;

} // namespace zel::platform
