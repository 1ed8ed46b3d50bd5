// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/paths/max_path.h"
#include "zel/platform/paths/path_text.h"
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

/// Normalises a text that is passed to a path.
namespace zel {

constexpr bool is_separator(char c) noexcept { return c == '\\' || c == '/'; }

/// True for a text with a single leading separator, which means the current folder.
constexpr bool begins_in_current_folder(std::string_view text) noexcept
{
    return !text.empty() && is_separator(text[0]) && !(text.size() > 1 && is_separator(text[1]));
}

/// True for a text that is already normalised.
inline bool is_normal(std::string_view text) noexcept
{
    return !begins_in_current_folder(text) && std::memchr(text.data(), '/', text.size()) == nullptr;
}

/// Writes the normalised text into an array of `max_path` bytes, which may be the source.
/// \returns false, with nothing written, when it does not fit.
inline bool normalize(char * result, std::string_view source) noexcept
{
    bool const normal = is_normal(source);
    bool const dot = !normal && begins_in_current_folder(source);
    if (source.size() + (dot ? 1 : 0) > platform::longest_path) {
        return false;
    }
    char * const start = result + (dot ? 1 : 0);
    std::memmove(start, source.data(), source.size());
    start[source.size()] = '\0';
    if (dot) {
        *result = '.';
    }
    if (!normal) {
        std::replace(start, start + source.size(), '/', '\\');
    }
    return true;
}

/// The normalised argument of an operation that reports failure by its result. Most arguments are
/// normalised already and are not copied.
class text_argument {
public:
    explicit text_argument(char const * source) noexcept
    {
        std::string_view const given = platform::as_text(source);
        if (is_normal(given)) {
            text_ = given.size() <= platform::longest_path ? given.data() : nullptr;
            size_ = given.size();
        } else if (normalize(area_, given)) {
            text_ = area_;
            size_ = std::strlen(area_);
        }
    }
    text_argument(text_argument const &) = delete;
    text_argument & operator=(text_argument const &) = delete;

    bool fits() const noexcept { return text_ != nullptr; }
    char const * c_str() const noexcept { return text_; }
    std::string_view view() const noexcept { return {text_, size_}; }

private:
    char area_[platform::max_path]; // uninitialised unless the text was changed
    char const * text_ = nullptr;
    std::size_t size_ = 0;
};

} // namespace zel
