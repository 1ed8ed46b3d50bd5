// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/host/folder_entry_linux.h"
#include "zel/platform/profiles/profile_file_linux.h"
#include <climits>
#include <cstddef>
#include <string_view>

#include <sys/stat.h>
#include <sys/types.h>

namespace zel::platform {

/// A temporary file beside a private-profile file. It receives the new content and then replaces
/// the old file. The destructor removes it if it did not replace the file.
///
/// It has one usual name, so that the next writer finds and removes what a killed one left. It gets
/// a different name if a file of that name exists that cannot be removed or is in use.
class profile_replacement {
public:
    profile_replacement() noexcept = default;
    profile_replacement(profile_replacement const &) = delete;
    profile_replacement & operator=(profile_replacement const &) = delete;
    ~profile_replacement();

    /// The mode of a new replacement: only the owner may open it until `copy_mode`, because it may
    /// contain secrets.
    static constexpr mode_t private_mode = 0600;
    /// The mode of a new file that replaces none: the usual rights of a new file.
    static constexpr mode_t new_file_mode = 0666;

    /// Makes an empty file beside `place`, which must outlive this object.
    /// \param writer_is_alone  true if no other writer can be working on this file: a file of the
    ///                         usual name that cannot be opened is then a leftover.
    /// \returns false with `errno` set.
    bool create(folder_entry const & place, mode_t mode, bool writer_is_alone) noexcept;

    /// Copies owner, access list and attributes. Call it before `fill`.
    /// \returns false when something cannot be copied.
    bool copy_owner_and_attributes(lockable_file const & old) noexcept;
    /// Writes the whole content and flushes it to the disk. May be called again.
    bool fill(std::string_view text) noexcept;
    /// Copies the mode of the old file, including the bits that a write clears. Call it after
    /// `fill`.
    bool copy_mode(struct stat const & old) noexcept;

    /// Replaces the file.
    bool take_place() noexcept;
    /// Gives the file its name, if no file of that name exists.
    /// \returns false with `errno` set; `EEXIST` when there is a file already.
    bool become_new_file() noexcept;

private:
    bool create(char const * name, mode_t mode) noexcept;
    bool remove_leftover(char const * name, bool writer_is_alone) const noexcept;
    bool has_name() const noexcept;
    bool keep() noexcept;

    folder_entry const * place_ = nullptr;
    lockable_file file_;
    char name_[NAME_MAX + 1] = {};
};

/// Writes all bytes at a position.
/// \returns false with `errno` set.
bool write_at(int file, std::string_view bytes, std::size_t position) noexcept;
bool cut_file(int file, std::size_t size) noexcept;
/// Flushes the content to the disk, unless the build disables that.
bool flush_file(int file) noexcept;

} // namespace zel::platform
