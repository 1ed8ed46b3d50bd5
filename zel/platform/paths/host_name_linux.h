// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/paths/host_path.h"
#include "zel/platform/paths/max_path.h"
#include <cstddef>
#include <cstring>

namespace zel::platform {

/// A path in the host's form, in an array of its own.
class host_name {
public:
    /// Sets the last error, and leaves the name empty, when no name of the host corresponds to the
    /// path.
    explicit host_name(char const * path) noexcept
        : valid_(to_host_path(text_, path))
    {
    }

    explicit operator bool() const noexcept { return valid_; }
    char const * c_str() const noexcept { return text_; }

    /// Removes the separators at the end; with one there the host would follow a link.
    /// \returns true when there were any.
    bool strip_separators() noexcept
    {
        std::size_t const size = std::strlen(text_);
        std::size_t end = size;
        while (end > 1 && text_[end - 1] == '/') {
            --end;
        }
        text_[end] = '\0';
        return end != size;
    }

private:
    char text_[max_path];
    bool valid_;
};

} // namespace zel::platform
