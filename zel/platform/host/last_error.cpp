// SPDX-License-Identifier: MIT
#include "zel/platform/host/failure.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace zel::platform {
namespace {

constexpr std::size_t reason_size = 512;

struct state {
    std::uint32_t code;
    std::uint32_t length; // of the host's reason, 0 when there is none
    char reason[reason_size + 2]; // not terminated; room for the line end
};

constinit thread_local state current{};

struct text {
    std::uint32_t code;
    std::string_view words;
};

// "System Error Codes", in ascending order.
constexpr text texts[] = {
    {error_success, "The operation completed successfully.\r\n"},
    {error_file_not_found, "The system cannot find the file specified.\r\n"},
    {error_path_not_found, "The system cannot find the path specified.\r\n"},
    {error_too_many_open_files, "The system cannot open the file.\r\n"},
    {error_access_denied, "Access is denied.\r\n"},
    {error_invalid_handle, "The handle is invalid.\r\n"},
    {error_not_enough_memory, "Not enough storage is available to process this command.\r\n"},
    {error_not_same_device, "The system cannot move the file to a different disk drive.\r\n"},
    {error_no_more_files, "There are no more files.\r\n"},
    {error_write_protect, "The media is write protected.\r\n"},
    {error_bad_length, "The program issued a command but the command length is incorrect.\r\n"},
    {error_write_fault, "The system cannot write to the specified device.\r\n"},
    {error_read_fault, "The system cannot read from the specified device.\r\n"},
    {error_sharing_violation,
     "The process cannot access the file because it is being used by another process.\r\n"},
    {error_file_exists, "The file exists.\r\n"},
    {error_invalid_parameter, "The parameter is incorrect.\r\n"},
    {error_disk_full, "There is not enough space on the disk.\r\n"},
    {error_invalid_name, "The filename, directory name, or volume label syntax is incorrect.\r\n"},
    {error_mod_not_found, "The specified module could not be found.\r\n"},
    {error_proc_not_found, "The specified procedure could not be found.\r\n"},
    {error_dir_not_empty, "The directory is not empty.\r\n"},
    {error_signal_refused, "The recipient process has refused the signal.\r\n"},
    {error_bad_pathname, "The specified path is invalid.\r\n"},
    {error_already_exists, "Cannot create a file when that file already exists.\r\n"},
    {error_filename_exced_range, "The filename or extension is too long.\r\n"},
    {error_not_owner, "Attempt to release mutex not owned by caller.\r\n"},
    {error_too_many_posts, "Too many posts were made to a semaphore.\r\n"},
    {error_invalid_address, "Attempt to access invalid address.\r\n"},
    {error_privilege_not_held, "A required privilege is not held by the client.\r\n"},
    {error_invalid_window_handle, "Invalid window handle.\r\n"},
    {error_invalid_thread_id, "Invalid thread identifier.\r\n"},
    {error_no_system_resources,
     "Insufficient system resources exist to complete the requested service.\r\n"},
    {error_timeout, "This operation returned because the timeout period expired.\r\n"},
    {error_not_enough_quota, "Not enough quota is available to process this command.\r\n"},
};
static_assert(std::is_sorted(std::begin(texts), std::end(texts),
                             [](text const & a, text const & b) { return a.code < b.code; }));

} // namespace

std::uint32_t last_error() noexcept { return current.code; }

void set_last_error(std::uint32_t code) noexcept
{
    current.code = code;
    current.length = 0;
}

void set_last_error(std::uint32_t code, std::string_view reason) noexcept
{
    std::size_t const length = std::min(reason.size(), reason_size - 1);
    std::copy_n(reason.data(), length, current.reason);
    current.reason[length] = '\r';
    current.reason[length + 1] = '\n';
    current.length = length == 0 ? 0 : static_cast<std::uint32_t>(length) + 2;
    current.code = code;
}

std::string_view error_text(std::uint32_t code) noexcept
{
    if (code == current.code && current.length != 0) {
        return {current.reason, current.length};
    }
    auto const * const found = std::lower_bound(
        std::begin(texts), std::end(texts), code,
        [](text const & row, std::uint32_t wanted) { return row.code < wanted; });
    return found != std::end(texts) && found->code == code ? found->words : std::string_view();
}

} // namespace zel::platform
