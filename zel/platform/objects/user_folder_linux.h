// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/host/descriptor_linux.h"

#include <sys/stat.h>

namespace zel::platform {

/// The user's own folder in the host's shared memory, where named objects have their files.
///
/// What is found there is used only if it belongs to the user alone. Failures set the last error: 5
/// for anything that another user could have put there, 8 for memory, 4 for descriptors, 1450 when
/// the host has no shared memory.
class user_folder {
public:
    /// \param create  true to make the folder if it is missing.
    /// \returns false; with last error 2 when the folder is missing and `create` is false.
    bool open(bool create) noexcept;

    /// Opens the folder, whoever it belongs to, to remove a name for which `leads_to` is true.
    bool open_to_remove() noexcept;

    int get() const noexcept { return folder_.get(); }

    enum class found { nothing, file, error };
    /// Opens a file for reading and writing.
    found open_file(char const * name, descriptor & file, struct stat & facts) const noexcept;

    /// Makes a new file.
    /// \returns false, with `errno` `EEXIST` when the file exists.
    bool make_file(char const * name, descriptor & file, struct stat & facts) const noexcept;

    /// True if the name leads to the file with these facts.
    bool leads_to(char const * name, struct stat const & facts) const noexcept;

private:
    descriptor folder_; // with `O_PATH`
};

/// Sets the last error from the `errno` of a call in the folder.
/// \returns false.
bool fail_in_shared_memory(int host_error) noexcept;

} // namespace zel::platform
