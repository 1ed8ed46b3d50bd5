// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include <cstdint>

namespace zel::platform {

/// The codes that this layer sets, with the platform's documented values.
enum error : std::uint32_t {
    error_success = 0,
    error_file_not_found = 2,
    error_path_not_found = 3,
    error_too_many_open_files = 4,
    error_access_denied = 5,
    error_invalid_handle = 6,
    error_not_enough_memory = 8,
    error_not_same_device = 17,
    error_no_more_files = 18,
    error_write_protect = 19,
    error_bad_length = 24,
    error_write_fault = 29,
    error_read_fault = 30,
    error_sharing_violation = 32,
    error_file_exists = 80,
    error_invalid_parameter = 87,
    error_disk_full = 112,
    error_invalid_name = 123,
    error_mod_not_found = 126,
    error_proc_not_found = 127,
    error_dir_not_empty = 145,
    error_signal_refused = 156,
    error_bad_pathname = 161,
    error_already_exists = 183,
    error_filename_exced_range = 206,
    error_not_owner = 288,
    error_too_many_posts = 298,
    error_invalid_address = 487,
    error_privilege_not_held = 1314,
    error_invalid_window_handle = 1400,
    error_invalid_thread_id = 1444,
    error_no_system_resources = 1450,
    error_timeout = 1460,
    error_not_enough_quota = 1816,
};

/// The calling thread's last error: each thread has its own, 0 at first. Functions of this layer
/// set it when they fail. On success they leave it unchanged unless they say otherwise.
ZEL_API std::uint32_t last_error() noexcept;
ZEL_API void set_last_error(std::uint32_t code) noexcept;

} // namespace zel::platform
