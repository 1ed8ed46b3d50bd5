// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/host/descriptor_linux.h"

#include <climits>

namespace zel::platform {

/// A name in an open folder: what renames, replacements and removals work on, whatever happens to
/// the folders above it meanwhile. Names are the host's, zero-terminated.
///
/// Links are never followed by hand: what protects a user from links that others plant is inside
/// the host's own search for a name. Failures are told by `errno`.
class folder_entry {
public:
    /// The entry that `name` itself stands for; it need not exist, and a link is the link.
    bool open(char const * name) noexcept;

    /// The entry of a file that was opened by `name`, which may have led through links.
    ///
    /// The host's name of the descriptor tells where it lies, which takes /proc for a file behind a
    /// link, and no other. What is found there is compared with the file.
    /// \returns false with `ESTALE` when the file has no entry any more, or has just been moved or
    ///          replaced: look again; with the host's error when /proc or the folder can't be read.
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
