// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

namespace zel::platform {

/// True when both were read from the same file, whatever its names are. A number is given to
/// another file once nothing refers to the old one, so one of the two has to be open meanwhile.
inline bool same_file(struct stat const & first, struct stat const & second) noexcept
{
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

} // namespace zel::platform
