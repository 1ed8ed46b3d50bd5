// SPDX-License-Identifier: MIT
#include "zel/platform/paths/path_parts.h"

#include "zel/base/ascii.h"
#include "zel/platform/paths/path_text.h"
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace zel::platform {
namespace {

/// Finds the first blank outside double quotes, or the terminator.
char const * find_unquoted_blank(char const * text) noexcept
{
    for (bool quoted = false; *text != '\0' && (quoted || *text != ' '); ++text) {
        quoted = quoted != (*text == '"');
    }
    return text;
}

/// True for `\\server\share` and nothing more.
bool is_share(std::string_view text) noexcept
{
    return begins_with_server(text) && !text.starts_with("\\\\?\\")
        && root_length(text) == text.size() && text.rfind('\\') > 1;
}

} // namespace

char * path_add_backslash(char * text) noexcept
{
    std::string_view const whole = as_text(text);
    if (text == nullptr || whole.empty() || whole.ends_with('\\')) {
        return text == nullptr ? nullptr : text + whole.size();
    }
    if (whole.size() >= longest_path) {
        return nullptr;
    }
    text[whole.size()] = '\\';
    text[whole.size() + 1] = '\0';
    return text + whole.size() + 1;
}

char * path_remove_backslash(char * text) noexcept
{
    if (text == nullptr) {
        return nullptr;
    }
    std::string_view const whole = as_text(text);
    char * const end = text + whole.size();
    if (!whole.ends_with('\\')) {
        return end;
    }
    if (path_is_root(text)) {
        return end - 1;
    }
    end[-1] = '\0';
    return end - 1;
}

char const * path_find_extension(char const * text) noexcept
{
    if (text == nullptr) {
        return nullptr;
    }
    std::string_view const whole = as_text(text);
    std::size_t const dot = whole.find_last_of("\\ .");
    return text + (dot != std::string_view::npos && whole[dot] == '.' ? dot : whole.size());
}

void path_remove_extension(char * text) noexcept
{
    if (text != nullptr) {
        text[path_find_extension(text) - text] = '\0';
    }
}

bool path_rename_extension(char * text, char const * extension) noexcept
{
    std::string_view added;
    if (text == nullptr || !read_path(extension, added)) {
        return false;
    }
    auto const stem = static_cast<std::size_t>(path_find_extension(text) - text);
    if (stem + added.size() > longest_path) {
        return false;
    }
    store_text(text + stem, added);
    return true;
}

bool path_quote_spaces(char * text) noexcept
{
    std::string_view const whole = as_text(text);
    if (whole.find(' ') == std::string_view::npos || whole.size() + 2 > longest_path) {
        return false;
    }
    std::memmove(text + 1, text, whole.size());
    text[0] = '"';
    std::memcpy(text + 1 + whole.size(), "\"", 2);
    return true;
}

bool path_unquote_spaces(char * text) noexcept
{
    std::string_view const whole = as_text(text);
    if (whole.size() < 2 || !whole.starts_with('"') || !whole.ends_with('"')) {
        return false;
    }
    store_text(text, whole.substr(1, whole.size() - 2));
    return true;
}

char const * path_get_args(char const * text) noexcept
{
    if (text == nullptr) {
        return nullptr;
    }
    char const * const blank = find_unquoted_blank(text);
    return *blank == '\0' ? blank : blank + 1;
}

void path_remove_args(char * text) noexcept
{
    if (text != nullptr) {
        text[find_unquoted_blank(text) - text] = '\0';
    }
}

bool path_remove_file_spec(char * text) noexcept
{
    std::string_view const whole = as_text(text);
    std::string_view folder = without_last_component(whole);
    if (folder.size() == whole.size()) {
        if (!is_share(whole)) {
            return false;
        }
        folder = whole.substr(0, whole.rfind('\\'));
    }
    text[folder.size()] = '\0';
    return true;
}

char const * path_find_file_name(char const * text) noexcept
{
    if (text == nullptr) {
        return nullptr;
    }
    std::string_view const whole = as_text(text);
    for (std::size_t at = whole.size(); at-- > 1;) {
        if ((whole[at - 1] == '\\' || whole[at - 1] == ':') && whole[at] != '\\') {
            return text + at;
        }
    }
    return text;
}

char const * path_skip_root(char const * text) noexcept
{
    std::string_view const whole = as_text(text);
    std::size_t const root = root_length(whole);
    if (root == 0) {
        return nullptr;
    }
    bool const separator = begins_with_server(whole) && whole.substr(root).starts_with('\\');
    return text + root + (separator ? 1 : 0);
}

char * path_build_root(char * text, std::int32_t drive) noexcept
{
    if (text != nullptr && drive >= 0 && drive < 26) {
        char const root[] = {static_cast<char>('A' + drive), ':', '\\', '\0'};
        std::memcpy(text, root, sizeof root);
    }
    return text;
}

std::int32_t path_get_drive_number(char const * text) noexcept
{
    std::string_view const whole = as_text(text);
    std::size_t const drive = find_drive(whole);
    return drive == std::string_view::npos ? -1 : ascii::lower(whole[drive]) - 'a';
}

bool path_strip_to_root(char * text) noexcept
{
    if (text == nullptr) {
        return false;
    }
    std::size_t const root = root_length(text);
    text[root] = '\0';
    return root > 0;
}

void path_strip_path(char * text) noexcept
{
    if (text != nullptr) {
        store_text(text, path_find_file_name(text));
    }
}

bool path_make_pretty(char * text) noexcept
{
    std::string_view const whole = as_text(text);
    bool capitals = false;
    for (char const c : whole) {
        if (ascii::is_small(c)) {
            return false;
        }
        capitals = capitals || ascii::is_letter(c);
    }
    std::transform(text, text + whole.size(), text, ascii::lower);
    return capitals;
}

void path_remove_blanks(char * text) noexcept
{
    std::string_view rest = as_text(text);
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    rest = rest.substr(0, rest.find_last_not_of(' ') + 1);
    if (text != nullptr) {
        store_text(text, rest);
    }
}

bool path_is_file_spec(char const * text) noexcept
{
    return as_text(text).find_first_of("\\:") == std::string_view::npos;
}

bool path_is_name(std::string_view text) noexcept
{
    return !text.empty() && text != "." && text != ".." && text.find('\\') == text.npos
        && !begins_with_drive(text);
}

bool path_is_relative(char const * text) noexcept { return root_length(as_text(text)) == 0; }

bool path_is_root(char const * text) noexcept
{
    std::string_view const whole = as_text(text);
    return !whole.empty() && root_length(whole) == whole.size() && !is_bare_drive(whole);
}

bool path_is_url(char const * text) noexcept
{
    std::string_view const whole = as_text(text);
    std::size_t const scheme = whole.find(':');
    // RFC 3986 allows a scheme of one letter; here that is a drive.
    return scheme != std::string_view::npos && scheme >= 2 && ascii::is_letter(whole[0])
        && std::all_of(whole.begin() + 1, whole.begin() + static_cast<std::ptrdiff_t>(scheme),
                       [](char c) {
                           return ascii::is_letter(c) || ascii::is_digit(c) || c == '+' || c == '-'
                               || c == '.';
                       });
}

char const * path_find_next_component(char const * text) noexcept
{
    if (text == nullptr || *text == '\0') {
        return nullptr;
    }
    char const * const separator = std::strchr(text, '\\');
    if (separator == nullptr) {
        return text + std::strlen(text);
    }
    return separator + (separator[1] == '\\' ? 2 : 1);
}

} // namespace zel::platform
