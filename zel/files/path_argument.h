// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/paths/max_path.h"
#include "zel/platform/paths/path_text.h"
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

/// How a text becomes one of a path's.
namespace zel {

constexpr bool is_separator(char c) noexcept { return c == '\\' || c == '/'; }

/// Writes the normalised text into an array of `max_path` bytes, which may be the source.
/// \returns false when it would not fit, and then nothing is written.
inline bool normalize(char * result, std::string_view source) noexcept
{
    bool const dot = !source.empty() && is_separator(source[0])
        && !(source.size() > 1 && is_separator(source[1]));
    if (source.size() + (dot ? 1 : 0) > platform::longest_path) {
        return false;
    }
    char * const start = result + (dot ? 1 : 0);
    std::memmove(start, source.data(), source.size());
    start[source.size()] = '\0';
    if (dot) {
        *result = '.';
    }
    // Most texts have none, and looking for one is much cheaper than replacing.
    if (std::memchr(start, '/', source.size()) != nullptr) {
        std::replace(start, start + source.size(), '/', '\\');
    }
    return true;
}

/// A normalised argument of an operation that can say that it failed.
class text_argument {
public:
    explicit text_argument(char const * source) noexcept
        : fits_(normalize(text_, platform::as_text(source)))
    {
    }

    bool fits() const noexcept { return fits_; }
    char const * c_str() const noexcept { return text_; }

private:
    char text_[platform::max_path]; // what is behind the text has no value
    bool fits_;
};

} // namespace zel
