// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

/// Operations on the text of a path: this is where a path is made canonical. None of them accesses
/// a disk.
///
/// A text is zero-terminated and its separator is the backslash. Comparisons ignore the case of
/// ASCII letters. A root is `C:\`, `C:`, `\`, `\\server\share`, `\\server`, `\\?\C:\` or
/// `\\?\UNC\server\share`. Every text that is changed in place and every `result` is an array of
/// `max_path` bytes. Nothing is ever cut to fit: if a text or the result is longer than that, the
/// operation fails and leaves the array unchanged. A null text is read as an empty one; a null
/// array makes the operation fail. Nothing is allocated and nothing is raised.
namespace zel::platform {

/// Joins `folder` and `name` with one backslash and resolves `.` and `..`. A `name` with a drive or
/// a network root replaces `folder`; a `name` with a single leading backslash keeps only the root
/// of `folder`. An empty `name` gives `folder`, two empty texts give `\`. `result` may be either of
/// them.
/// \returns `result`, or null when it does not fit.
char * path_combine(char * result, char const * folder, char const * name) noexcept;

/// Joins `more` to the text in place, resolving `.` and `..`. Leading backslashes of `more` are
/// skipped, unless it begins with two; a `more` with a drive or a network root replaces the text.
/// `more` may lie in the array.
bool path_append(char * text, std::string_view more) noexcept;

/// Resolves `.` and `..` components and folds doubled separators. At the root of a rooted text `..`
/// has no effect; at the start of a relative text it stays. A relative text never becomes a rooted
/// one: `a\..` gives `.`, and `.\c:` keeps its `.\`. A backslash at the end, dots and blanks at the
/// end of a name, and the empty text stay as they are.
/// \param result  may be `source`.
bool path_canonicalize(char * result, char const * source) noexcept;

} // namespace zel::platform
