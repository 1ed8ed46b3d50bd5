// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/host/descriptor_linux.h"

#include <climits>

namespace zel::platform {

/// A name in an open folder. Renames, replacements and removals use it, so that they are not
/// affected when the folders above are moved or replaced meanwhile. Names are the host's,
/// zero-terminated.
///
/// This class never resolves a link itself. The host does it in its own search for a name, where it
/// applies its protection against links that other users plant. Failures are reported in `errno`.
class folder_entry {
public:
    /// Opens the entry `name` itself. It need not exist; a link stands for itself, not for its
    /// target.
    bool open(char const * name) noexcept;

    /// Opens the entry of a file that was opened by `name`. The name may have led through links.
    ///
    /// If `name` led through a link, the entry is found by the descriptor's name in /proc;
    /// otherwise /proc is not needed. The entry that is found is compared with the file.
    /// \returns false with `ESTALE` when the file has no entry any more, or has just been moved or
    ///          replaced: the caller may try again. False with the host's error when /proc or the
    ///          folder can't be read.
    bool open_of_file(char const * name, int file) noexcept;

    int folder() const noexcept { return folder_.get(); }
    char const * name() const noexcept { return name_; }

private:
    bool split(char const * name, char * folder) noexcept;
    bool holds(int file) const noexcept;

    descriptor folder_; // opened with `O_PATH`
    char name_[NAME_MAX + 1] = {};
};

} // namespace zel::platform
