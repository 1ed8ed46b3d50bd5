// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/host/failure.h"
#include "zel/platform/paths/host_name_linux.h"

#include <sys/stat.h>

namespace zel::platform {

inline constexpr mode_t write_bits = S_IWUSR | S_IWGRP | S_IWOTH;

/// Reads the facts of the entry itself, not of a link's target. With a separator at the end the
/// entry has to be a folder.
inline bool get_facts_of_entry(host_name & name, struct stat & facts) noexcept
{
    if (!name) {
        return false;
    }
    bool const folder_wanted = name.strip_separators();
    if (::lstat(name.c_str(), &facts) != 0) {
        return fail_with_errno();
    }
    struct stat target;
    if (!folder_wanted || S_ISDIR(facts.st_mode)
        || (S_ISLNK(facts.st_mode) && ::stat(name.c_str(), &target) == 0
            && S_ISDIR(target.st_mode))) {
        return true;
    }
    return fail(error_path_not_found);
}

/// True if no user has the right to write. A link has no rights of its own.
inline bool is_read_only(struct stat const & facts) noexcept
{
    return !S_ISLNK(facts.st_mode) && (facts.st_mode & write_bits) == 0;
}

} // namespace zel::platform
