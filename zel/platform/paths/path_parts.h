// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

/// What a path's text consists of, found or cut off; the texts are those of canonical_path.h.
namespace zel::platform {

/// Adds a backslash to a text that has none at its end and isn't empty.
/// \returns the terminator, or null when the array has no room.
char * path_add_backslash(char * text) noexcept;

/// Removes one backslash at the end, unless the text is a root with it.
/// \returns the terminator; of a root that ends in one, the backslash that stays.
char * path_remove_backslash(char * text) noexcept;

/// The last dot of the file name, or the terminator. An extension holds no blank.
char const * path_find_extension(char const * text) noexcept;

/// Cuts the extension off, its dot included.
void path_remove_extension(char * text) noexcept;

/// Puts `extension`, which has its dot, in the place of the extension.
bool path_rename_extension(char * text, char const * extension) noexcept;

/// Puts the text in double quotes when it holds a blank.
/// \returns false when it holds none, or when there is no room for the quotes.
bool path_quote_spaces(char * text) noexcept;

/// Removes double quotes when the text both begins and ends with one.
bool path_unquote_spaces(char * text) noexcept;

/// What follows the first blank outside double quotes; the terminator when there is none.
char const * path_get_args(char const * text) noexcept;

/// Cuts the text in front of its first blank outside double quotes.
void path_remove_args(char * text) noexcept;

/// Cuts the last component off together with the separator in front of it. A root stays, apart from
/// that of a share, of which the server stays.
/// \returns false when there was nothing to cut.
bool path_remove_file_spec(char * text) noexcept;

/// The last component, a trailing backslash included. The whole text when it has none.
char const * path_find_file_name(char const * text) noexcept;

/// What follows the drive or the server and share.
/// \returns null for a text without a root.
char const * path_skip_root(char const * text) noexcept;

/// Writes the root of drive 0 to 25, `A:\` to `Z:\`, and leaves the text for any other number.
/// \returns `text`.
char * path_build_root(char * text, std::int32_t drive) noexcept;

/// The number of the drive letter that the text begins with, or -1.
std::int32_t path_get_drive_number(char const * text) noexcept;

/// Cuts everything behind the root.
/// \returns false when there is no root; the text is then empty.
bool path_strip_to_root(char * text) noexcept;

/// Leaves only the last component, as `path_find_file_name` finds it.
void path_strip_path(char * text) noexcept;

/// Makes every letter small, unless one is small already.
/// \returns true when that changed something.
bool path_make_pretty(char * text) noexcept;

/// Removes the blanks at both ends; a tab is none.
void path_remove_blanks(char * text) noexcept;

/// True when the text holds neither a backslash nor a colon.
bool path_is_file_spec(char const * text) noexcept;

/// True for one name, without a backslash or a drive, that is neither empty nor `.` nor `..`: it
/// means the same in whatever folder it is looked up.
bool path_is_name(std::string_view text) noexcept;

/// True unless the text begins with a backslash or a drive.
bool path_is_relative(char const * text) noexcept;

/// True for `\`, `X:\`, `\\server`, `\\server\share` and their `\\?\` forms.
bool path_is_root(char const * text) noexcept;

/// True when the text begins with a scheme of RFC 3986 and a colon. A scheme has two bytes at
/// least, so that a drive is none.
bool path_is_url(char const * text) noexcept;

/// What follows the first backslash, or the second where two stand together; the terminator when
/// there is no backslash.
/// \returns null for an empty text.
char const * path_find_next_component(char const * text) noexcept;

} // namespace zel::platform
