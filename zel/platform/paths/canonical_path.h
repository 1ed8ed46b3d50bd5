// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

/// Operations on the text of a path; none of them looks at a disk.
///
/// A text is zero-terminated, its separator is the backslash, and ASCII letters compare without
/// regard to case. A root is `C:\`, `C:`, `\`, `\\server\share`, `\\server`, `\\?\C:\` or
/// `\\?\UNC\server\share`. What is changed in place, and every `result`, is an array of `max_path`
/// bytes. Nothing is ever cut to fit: what joins or resolves texts fails, and leaves the array as
/// it was, when a text or the result is longer than that. A null text is read as an empty one; a
/// null array makes the operation fail. Nothing is allocated and nothing raised.
namespace zel::platform {

/// Joins `folder` and `name` with one backslash and resolves `.` and `..`. A `name` with a drive or
/// a network root takes the place of `folder`; one with a lone leading backslash keeps the root of
/// `folder`. An empty `name` gives `folder`, two empty texts `\`. `result` may be either of them.
/// \returns `result`, or null when it would not fit.
char * path_combine(char * result, char const * folder, char const * name) noexcept;

/// Joins `more` to the text in place, resolving `.` and `..`. Leading backslashes of `more` are
/// skipped unless it begins with two of them; what has a root takes the place of the text. `more`
/// may lie in the array.
bool path_append(char * text, std::string_view more) noexcept;

/// Resolves `.` and `..` components and folds doubled separators. At the root of a rooted text `..`
/// has no effect; at the start of a relative one it stays. A relative text never becomes a rooted
/// one: of `a\..` the `.` is left, and `.\c:` keeps its `.\`. A backslash at the end, the dots and
/// blanks at the end of a name and the empty text stay as they are.
/// \param result  may be `source`.
bool path_canonicalize(char * result, char const * source) noexcept;

} // namespace zel::platform
