// SPDX-License-Identifier: MIT
#pragma once

#include <sys/stat.h>

namespace zel::platform {

/// True if both describe the same file, under whatever names. The host reuses a file's number once
/// nothing refers to the file, so at least one of the two has to be open meanwhile.
inline bool same_file(struct stat const & first, struct stat const & second) noexcept
{
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

} // namespace zel::platform
