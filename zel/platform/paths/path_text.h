// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/ascii.h"
#include "zel/platform/paths/max_path.h"
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

/// Helpers that the operations on texts of paths share: finding roots, reading arguments.
namespace zel::platform {

inline constexpr std::size_t longest_path = max_path - 1; // bytes, without the terminator

constexpr bool begins_with_drive(std::string_view text) noexcept
{
    return text.size() >= 2 && text[1] == ':' && ascii::is_letter(text[0]);
}

constexpr bool begins_with_server(std::string_view text) noexcept
{
    return text.starts_with("\\\\");
}

/// A null text is an empty one.
inline std::string_view as_text(char const * text) noexcept { return text == nullptr ? "" : text; }

/// \returns false for a text that is too long for a path; it is read only as far as needed.
inline bool read_path(char const * text, std::string_view & result) noexcept
{
    if (text == nullptr) {
        result = ""; // not null, so that it can be copied
        return true;
    }
    void const * const end = std::memchr(text, '\0', max_path);
    if (end == nullptr) {
        return false;
    }
    result = {text, static_cast<std::size_t>(static_cast<char const *>(end) - text)};
    return true;
}

inline void store_text(char * result, std::string_view text) noexcept
{
    std::memmove(result, text.data(), text.size());
    result[text.size()] = '\0';
}

/// The position of the drive, at the start of the text or behind `\\?\`; npos when there is none.
constexpr std::size_t find_drive(std::string_view text) noexcept
{
    std::size_t const start = text.starts_with("\\\\?\\") ? 4 : 0;
    return begins_with_drive(text.substr(start)) ? start : std::string_view::npos;
}

/// Length of the root: `C:\`, `C:`, `\`, `\\server\share` or `\\server`, where the server may be
/// `?` or `?\UNC\server`. The backslash behind a share is not part of the root. 0 without a root.
constexpr std::size_t root_length(std::string_view text) noexcept
{
    if (std::size_t const drive = find_drive(text); drive != std::string_view::npos) {
        std::size_t const end = drive + 2;
        return end < text.size() && text[end] == '\\' ? end + 1 : end;
    }
    if (!begins_with_server(text)) {
        return text.starts_with('\\') ? 1 : 0;
    }
    std::size_t const server = ascii::equal_without_case(text.substr(0, 8), "\\\\?\\UNC\\") ? 8 : 2;
    std::size_t const server_end = std::min(text.find('\\', server), text.size());
    std::size_t const share_end = std::min(text.find('\\', server_end + 1), text.size());
    return share_end > server_end + 1 ? share_end : server_end;
}

/// True for the root `C:`, which a name follows without a backslash.
constexpr bool is_bare_drive(std::string_view root) noexcept
{
    std::size_t const drive = find_drive(root);
    return drive != std::string_view::npos && root.size() == drive + 2;
}

/// The part of `text` before its last component.
constexpr std::string_view without_last_component(std::string_view text) noexcept
{
    std::size_t const root = root_length(text);
    std::size_t end = text.rfind('\\');
    if (end == std::string_view::npos || end < root) {
        return text.substr(0, root);
    }
    while (end > root && text[end - 1] == '\\') {
        --end;
    }
    return text.substr(0, end);
}

} // namespace zel::platform
