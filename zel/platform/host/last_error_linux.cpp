// SPDX-License-Identifier: MIT
#include "zel/platform/host/failure.h"

#include <cerrno>

namespace zel::platform {

std::uint32_t error_from_errno(int host_error) noexcept
{
    switch (host_error) {
    case 0:
        return error_success;
    case ENOENT:
        return error_file_not_found;
    case ENOTDIR:
    case ELOOP:
        return error_path_not_found;
    case EMFILE:
    case ENFILE:
        return error_too_many_open_files;
    case EACCES:
    case EPERM:
    case EISDIR:
        return error_access_denied;
    case EROFS:
        return error_write_protect;
    case EBADF:
        return error_invalid_handle;
    case ENOMEM:
        return error_not_enough_memory;
    case EXDEV:
        return error_not_same_device;
    case EBUSY:
    case ETXTBSY:
        return error_sharing_violation;
    case EEXIST:
        return error_already_exists;
    case ENOTEMPTY:
        return error_dir_not_empty;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return error_disk_full;
    case ENAMETOOLONG:
        return error_filename_exced_range;
    case EAGAIN:
        return error_no_system_resources;
    case EIO:
        return error_write_fault;
    case ETIMEDOUT:
        return error_timeout;
    default:
        return error_invalid_parameter;
    }
}

} // namespace zel::platform
