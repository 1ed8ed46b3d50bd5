// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

/// Finds or cuts off the parts of a path's text. The texts are those of canonical_path.h.
namespace zel::platform {

/// Adds a backslash to a text that has none at its end and is not empty.
/// \returns the terminator, or null when the array has no room.
char * path_add_backslash(char * text) noexcept;

/// Removes one backslash at the end, unless it belongs to a root.
/// \returns the address of the terminator; for a root that keeps its backslash, of that backslash.
char * path_remove_backslash(char * text) noexcept;

/// The last dot of the file name, or the terminator. An extension contains no blank.
char const * path_find_extension(char const * text) noexcept;

/// Cuts off the extension with its dot.
void path_remove_extension(char * text) noexcept;

/// Replaces the extension by `extension`, which includes its dot.
bool path_rename_extension(char * text, char const * extension) noexcept;

/// Encloses the text in double quotes when it contains a blank.
/// \returns false when it contains none, or when there is no room for the quotes.
bool path_quote_spaces(char * text) noexcept;

/// Removes the double quotes of a text that both begins and ends with one.
bool path_unquote_spaces(char * text) noexcept;

/// What follows the first blank outside double quotes; the terminator when there is none.
char const * path_get_args(char const * text) noexcept;

/// Cuts the text off before its first blank outside double quotes.
void path_remove_args(char * text) noexcept;

/// Cuts off the last component and the separator before it. A root stays, except that of a share
/// only the server stays.
/// \returns false when there was nothing to cut.
bool path_remove_file_spec(char * text) noexcept;

/// The last component, including a trailing backslash. The whole text when it has no separator.
char const * path_find_file_name(char const * text) noexcept;

/// What follows the drive or the server and share.
/// \returns null for a text without a root.
char const * path_skip_root(char const * text) noexcept;

/// Writes the root of drive 0 to 25, `A:\` to `Z:\`. Leaves the text unchanged for any other
/// number.
/// \returns `text`.
char * path_build_root(char * text, std::int32_t drive) noexcept;

/// The number of the drive letter that the text begins with, or -1.
std::int32_t path_get_drive_number(char const * text) noexcept;

/// Cuts everything behind the root.
/// \returns false when there is no root; the text is then empty.
bool path_strip_to_root(char * text) noexcept;

/// Keeps only the last component, as `path_find_file_name` finds it.
void path_strip_path(char * text) noexcept;

/// Converts all letters to small ones, unless the text contains a small letter.
/// \returns true when that changed something.
bool path_make_pretty(char * text) noexcept;

/// Removes blanks, but no tabs, from both ends.
void path_remove_blanks(char * text) noexcept;

/// True when the text contains neither a backslash nor a colon.
bool path_is_file_spec(char const * text) noexcept;

/// True for a single name: no backslash, no drive, not empty, not `.` and not `..`. It stays inside
/// whatever folder it is looked up in.
bool path_is_name(std::string_view text) noexcept;

/// True unless the text begins with a backslash or a drive.
bool path_is_relative(char const * text) noexcept;

/// True for `\`, `X:\`, `\\server`, `\\server\share` and their `\\?\` forms.
bool path_is_root(char const * text) noexcept;

/// True when the text begins with a scheme of RFC 3986 and a colon. A scheme has at least two bytes
/// here, because one letter is a drive.
bool path_is_url(char const * text) noexcept;

/// What follows the first backslash, or the second where two stand together; the terminator when
/// there is no backslash.
/// \returns null for an empty text.
char const * path_find_next_component(char const * text) noexcept;

} // namespace zel::platform
