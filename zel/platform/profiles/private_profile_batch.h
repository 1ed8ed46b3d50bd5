// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/profiles/private_profile.h"
#include <string>
#include <string_view>
#include <vector>

namespace zel::platform {

/// Collects the writes that one thread makes to private-profile files, and does them together.
///
/// While one is open, `write_private_profile_string` and `write_private_profile_struct` in its thread
/// only note the entry and return true. The file is rewritten once, by `finish` or at the end; before
/// that when the thread reads any private-profile file or writes to another one. So the thread finds
/// what it wrote, and the files hold what single writes would have left.
///
/// One that is opened while another is open in the same thread does nothing: the outermost one
/// collects and writes.
class private_profile_batch {
public:
    private_profile_batch() noexcept;
    /// Writes what waits. Entries for which there is no memory are lost.
    ~private_profile_batch();
    private_profile_batch(private_profile_batch const &) = delete;
    private_profile_batch & operator=(private_profile_batch const &) = delete;

    /// Writes what waits, if this is the outermost one.
    /// \throws std::bad_alloc  with nothing written, and everything waiting still.
    void finish();

    /// Notes an entry and copies its texts.
    /// \returns false when no batch is open in this thread.
    /// \throws std::bad_alloc  with the entry not noted.
    static bool take(private_profile_entry const & entry, char const * file);
    /// Writes what waits in this thread.
    /// \returns false when there is no memory for that; everything waits still.
    static bool write_what_waits() noexcept;

private:
    std::string_view copy(std::string_view text);
    void write();

    private_profile_batch * const outer_;
    std::string file_;
    std::vector<std::string> texts_; // whose bytes stay where they are; entries refer to them
    std::vector<private_profile_entry> entries_;
};

} // namespace zel::platform
