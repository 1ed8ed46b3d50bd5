// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/profiles/private_profile.h"
#include <string>
#include <string_view>
#include <vector>

namespace zel::platform {

/// Collects the writes of one thread to private-profile files, and does them together.
///
/// While a batch is open, `write_private_profile_string` and `write_private_profile_struct` in its
/// thread only record the entry and return true. The file is rewritten once, by `finish` or the
/// destructor; earlier if the thread reads any private-profile file or writes to another one. So
/// the thread reads what it wrote, and the files end up as after separate writes. A write that
/// fails leaves its reason in the last error at that time.
///
/// A batch that is opened while another is open in the same thread does nothing: the outermost
/// batch collects and writes.
class private_profile_batch {
public:
    private_profile_batch() noexcept;
    /// Writes the collected entries. Entries for which there is no memory are lost.
    ~private_profile_batch();
    private_profile_batch(private_profile_batch const &) = delete;
    private_profile_batch & operator=(private_profile_batch const &) = delete;

    /// Writes the collected entries, if this is the outermost batch.
    /// \throws std::bad_alloc  with nothing written and all entries still collected.
    void finish();

    /// Records an entry and copies its texts.
    /// \returns false when no batch is open in this thread.
    /// \throws std::bad_alloc  with the entry not recorded.
    static bool take(private_profile_entry const & entry, char const * file);
    /// Writes the entries collected in this thread.
    /// \returns false when there is no memory for that; all entries are still collected.
    static bool write_what_waits() noexcept;

private:
    std::string_view copy(std::string_view text);
    void write();

    private_profile_batch * const outer_;
    std::string file_;
    std::vector<std::string> texts_; // entries refer to their bytes, which do not move
    std::vector<private_profile_entry> entries_;
};

} // namespace zel::platform
