// SPDX-License-Identifier: MIT
#include "zel/files/native_path.h"

#include "zel/platform/last_error.h"
#include "zel/platform/paths/host_path.h"
#include "zel/platform/paths/max_path.h"
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
    char text[platform::max_path];
    if (!platform::from_host_path(text, name)) {
        if (platform::last_error() == platform::error_filename_exced_range) {
            throw std::length_error("zel::from_native: longer than 259 bytes");
        }
        throw std::invalid_argument("zel::from_native: a backslash or a NUL inside");
    }
    return path(text);
}

} // namespace zel
