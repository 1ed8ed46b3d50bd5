// SPDX-License-Identifier: MIT
#include "zel/files/native_path.h"

#include "zel/platform/paths/host_path.h"
#include "zel/platform/paths/max_path.h"
#include "zel/platform/paths/path_text.h"
#include <stdexcept>

namespace zel {

std::string to_native(path const & source)
{
    char text[platform::max_path];
    platform::to_host_path(text, source.c_str());
    return text;
}

path from_native(std::string_view name)
{
    constexpr char refused[] = {'\\', '\0'};
    if (name.find_first_of(std::string_view(refused, sizeof refused)) != std::string_view::npos) {
        throw std::invalid_argument("zel::from_native: a backslash or a NUL inside");
    }
    // A relative name such as `c:x` would become a drive without something in front of it.
    std::string_view const front = name.starts_with('/') ? "C:"
        : platform::begins_with_drive(name)              ? ".\\"
                                                         : "";
    char text[platform::max_path];
    if (front.size() + name.size() >= sizeof text) {
        throw std::length_error("zel::from_native: longer than 259 bytes");
    }
    text[front.size() + name.copy(text + front.copy(text, front.size()), name.size())] = '\0';
    return path(text);
}

} // namespace zel
