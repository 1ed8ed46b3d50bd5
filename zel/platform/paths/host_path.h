// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

/// Translates between texts of paths and the names that the host's own functions take. Nothing is
/// allocated. A `result` is an array of `max_path` bytes.
namespace zel::platform {

/// `C:\tmp\x` gives `/tmp/x`, `a\b` gives `a/b`, a single backslash gives `/`; `\\?\C:\x` counts as
/// `C:\x`. A text that contains `..` or ends in `.` is resolved first: `a\..\b` is `b` whatever `a`
/// is, and `a\.` is the link `a` and not its target.
/// \returns false with an empty result and the last error `error_path_not_found` for the empty
///          text, another drive or a server, `error_filename_exced_range` for a text of more than
///          259 bytes.
bool to_host_path(char * result, char const * text) noexcept;

/// `/tmp/x` gives `C:\tmp\x`, `a/b` gives `a\b`; `c:x` gives `.\c:x`, because `c:x` would be a
/// drive.
/// \returns false with an empty result and the last error `error_bad_pathname` for a name with a
///          backslash or a NUL inside, `error_filename_exced_range` for one that is too long.
bool from_host_path(char * result, std::string_view host) noexcept;

} // namespace zel::platform
