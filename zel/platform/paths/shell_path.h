// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
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

/// Bytes of a path's array, the terminator among them.
inline constexpr unsigned int max_path = 260;

/// The attribute bit that tells a folder from a file.
inline constexpr std::int32_t file_attribute_directory = 16;

/// Joins `folder` and `name` with one backslash and resolves `.` and `..`. A `name` with a drive or
/// a network root takes the place of `folder`; one with a lone leading backslash keeps the root of
/// `folder`. An empty `name` gives `folder`, two empty texts `\`. `result` may be either of them.
/// \returns `result`, or null when it would not fit.
char * path_combine(char * result, char const * folder, char const * name) noexcept;

/// Joins `more` to the text in place, resolving `.` and `..`. Leading backslashes of `more` are
/// skipped unless it begins with two of them; what has a root takes the place of the text.
bool path_append(char * text, char const * more) noexcept;

/// Resolves `.` and `..` components and folds doubled separators. At the root of a rooted text `..`
/// has no effect; at the start of a relative one it stays. A relative text never becomes a rooted
/// one: of `a\..` the `.` is left, and `.\c:` keeps its `.\`. A backslash at the end, the dots and
/// blanks at the end of a name and the empty text stay as they are.
/// \param result  may be `source`.
bool path_canonicalize(char * result, char const * source) noexcept;

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

/// Cuts the last component off together with the separator in front of it; a root stays.
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

/// True unless the text begins with a backslash or a drive.
bool path_is_relative(char const * text) noexcept;

/// True for `\`, `X:\`, `\\server`, `\\server\share` and their `\\?\` forms.
bool path_is_root(char const * text) noexcept;

/// True when the text begins with a scheme of RFC 3986 and a colon. A scheme has two bytes at
/// least, so that a drive is none.
bool path_is_url(char const * text) noexcept;

/// What follows the first backslash and those directly behind it, so that it never begins with one;
/// the terminator when there is no backslash.
/// \returns null for an empty text.
char const * path_find_next_component(char const * text) noexcept;

/// Writes the relative path that leads from `from` to `to`, both taken as canonical. The attributes
/// tell folders from files; from a file the way begins in the folder that holds it. Joined to where
/// it begins, it gives `to` again.
/// \returns false when there is none: the roots differ, or two texts without a drive or a server
///          have no component in common.
bool path_relative_path_to(char * result, char const * from, std::int32_t from_attributes,
                           char const * to, std::int32_t to_attributes) noexcept;

/// Writes the components that both texts begin with, a drive's root with its backslash. A lone
/// backslash in front is none.
/// \param result  may be null, for the length alone, or one of the texts.
/// \returns its length.
int path_common_prefix(char const * first, char const * second, char * result) noexcept;

/// True when `name` matches one of the patterns in `spec`, which are parted by `;`; blanks in front
/// of each are skipped. `*` stands for any bytes and `?` for one. `*.*` matches every name, and the
/// dot that ends a pattern also stands for the missing extension of a name without a dot.
bool path_match_spec(std::string_view name, std::string_view spec) noexcept;

/// True when `name` matches the one pattern, as `path_match_spec` matches each of its.
bool name_matches(std::string_view name, std::string_view pattern) noexcept;

/// Orders two texts, each in an array of `max_path` initialised bytes, byte by byte, with ASCII
/// capitals taken for small letters.
/// \returns below 0, 0 or above 0.
int path_compare(char const * first, char const * second) noexcept;

/// The same as a comparison that gives 0, and faster.
bool path_equal(char const * first, char const * second) noexcept;

} // namespace zel::platform
