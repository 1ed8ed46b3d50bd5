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

/// A temporary file beside a private-profile file, which gets new content and then the old file's
/// place. Removed at the end when it did not get that far.
///
/// It has one usual name, so that the next writer finds and removes what a killed one left there;
/// a name of its own when something is there that cannot be removed or that is in use.
class profile_replacement {
public:
    profile_replacement() noexcept = default;
    profile_replacement(profile_replacement const &) = delete;
    profile_replacement & operator=(profile_replacement const &) = delete;
    ~profile_replacement();

    /// What a replacement is made with: nobody but the owner may open it until `copy_mode`, since it
    /// may hold secrets.
    static constexpr mode_t private_mode = 0600;
    /// What a file is made with that replaces none: it gets the rights of a new file.
    static constexpr mode_t new_file_mode = 0666;

    /// Makes an empty file beside `place`, which must outlive this object.
    /// \param writer_is_alone  whether no other writer can be at work on this file, so that what
    ///                         has the usual name and cannot be opened is a leftover.
    /// \returns false with `errno` set.
    bool create(folder_entry const & place, mode_t mode, bool writer_is_alone) noexcept;

    /// Takes over owner, access list and attributes. To be called in front of `fill`.
    /// \returns false when something cannot be taken over.
    bool copy_owner_and_attributes(lockable_file const & old) noexcept;
    /// Writes the whole content and waits until the disk has it. Can be called again.
    bool fill(std::string_view text) noexcept;
    /// Takes over the mode of the old file, with the bits that a write takes off again. To be called
    /// behind `fill`.
    bool copy_mode(struct stat const & old) noexcept;

    /// Replaces the file.
    bool take_place() noexcept;
    /// \returns false with `EEXIST` when there is a file already.
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

/// Writes bytes at a position, all of them.
/// \returns false with `errno` set.
bool write_at(int file, std::string_view bytes, std::size_t position) noexcept;
bool cut_file(int file, std::size_t size) noexcept;
/// Waits until the disk has the content, unless the build leaves that out.
bool flush_file(int file) noexcept;

} // namespace zel::platform
