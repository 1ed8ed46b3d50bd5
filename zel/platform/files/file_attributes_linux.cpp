// SPDX-License-Identifier: MIT
#include "zel/platform/files/file_attributes.h"

#include "zel/platform/files/file_facts_linux.h"
#include "zel/platform/host/failure.h"
#include "zel/platform/paths/canonical_path.h"
#include "zel/platform/paths/host_name_linux.h"
#include "zel/platform/paths/path_parts.h"
#include "zel/platform/paths/relative_path.h"
#include <cstring>

#include <sys/stat.h>

namespace zel::platform {
namespace {

bool get_facts(char const * path, struct stat & facts) noexcept
{
    host_name const name(path);
    return name && succeeded(::stat(name.c_str(), &facts));
}

} // namespace

std::int32_t get_file_attributes(char const * path) noexcept
{
    struct stat facts;
    if (!get_facts(path, facts)) {
        return invalid_file_attributes;
    }
    char name[max_path];
    path_canonicalize(name, path);
    path_strip_path(name);
    std::int32_t attributes = 0;
    attributes |= is_read_only(facts) ? file_attribute_readonly : 0;
    attributes |= S_ISDIR(facts.st_mode) ? file_attribute_directory : 0;
    path_remove_backslash(name);
    bool const dots = std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
    attributes |= *name == '.' && !dots ? file_attribute_hidden : 0;
    return attributes == 0 ? file_attribute_normal : attributes;
}

bool set_file_attributes(char const * path, std::int32_t attributes) noexcept
{
    if (attributes == invalid_file_attributes) {
        return fail(error_invalid_parameter);
    }
    struct stat facts;
    if (!get_facts(path, facts)) {
        return false;
    }
    bool const read_only = (attributes & file_attribute_readonly) != 0;
    if (read_only == is_read_only(facts)) {
        return true;
    }
    mode_t const mode = facts.st_mode & 07777;
    host_name const name(path);
    return succeeded(::chmod(name.c_str(), read_only ? mode & ~write_bits : mode | S_IWUSR));
}

bool path_file_exists(char const * path) noexcept
{
    struct stat facts;
    return get_facts(path, facts);
}

bool path_is_directory(char const * path) noexcept
{
    struct stat facts;
    return get_facts(path, facts) && (S_ISDIR(facts.st_mode) || fail(error_path_not_found));
}

bool path_is_unlinked_directory(char const * path) noexcept
{
    host_name name(path);
    struct stat facts;
    return get_facts_of_entry(name, facts)
        && (S_ISDIR(facts.st_mode) || fail(error_path_not_found));
}

bool path_make_system_folder(char const * path) noexcept
{
    return path_is_directory(path) && fail(error_access_denied);
}

bool path_unmake_system_folder(char const * path) noexcept { return path_is_directory(path); }

bool get_file_size(char const * path, std::uint64_t & size) noexcept
{
    struct stat facts;
    if (!get_facts(path, facts)) {
        return false;
    }
    size = static_cast<std::uint64_t>(facts.st_size);
    return S_ISREG(facts.st_mode) || fail(error_access_denied);
}

} // namespace zel::platform
