// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

/// Private-profile files: `[section]` heads on lines of their own, `name=value` entries under them.
///
/// Names are compared without regard to the case of ASCII letters. In the file, blanks (space, tab,
/// vertical tab) around a value, around a name and before `[` are ignored; around a name that a
/// caller passes only spaces are ignored. Reading removes one pair of equal quotes (`"` or `'`)
/// around a value. A line whose first visible byte is `;` is a comment. A section's name ends at
/// the first `]` or at the line's end. If a section's name occurs several times, the first one
/// counts; the same holds for entries in a section. Lines end in CR LF, LF or CR. A leading UTF-8
/// byte-order mark is skipped.
///
/// `file` is a name in the host's form, zero-terminated. Anything but a regular file, an unreadable
/// file and a file of more than 1 GiB give an error, like a missing file. The host resolves the
/// name: if it refuses to follow a link (one that another user planted in a shared folder), the
/// call fails. If the file is under a lease, the call waits until the host has broken the lease.
/// Section, name, value and default end at their first NUL. Failures set the last error. Any thread
/// and any process may call any function at any time.
namespace zel::platform {

/// Finds an entry in one pass over the file, which is not cached, and not locked against writers
/// that replace it. A file that another program has locked is read as it is. If a writer is
/// overwriting the file in place, the call waits for it, at most 2 seconds. Allocates nothing.
/// \param buffer  receives the value, or `default_value` when there is no such entry, either cut to
///                `size - 1` bytes, and a terminator.
/// \returns the number of bytes without the terminator.
std::uint32_t get_private_profile_string(std::string_view section, std::string_view name,
                                         std::string_view default_value, char * buffer,
                                         std::uint32_t size, char const * file) noexcept;

/// Fills `buffer` from an entry that `write_private_profile_struct` wrote.
/// \returns false with `buffer` unchanged on failure: with `error_bad_length` when the entry is a
///          sound block of another size; with another error when there is no such entry or its text
///          is no block.
bool get_private_profile_struct(std::string_view section, std::string_view name, void * buffer,
                                std::uint32_t size, char const * file);

/// Determines the size of such an entry's block in bytes, in one pass over the file and without
/// allocation.
/// \returns false, with `size` 0, when there is no such entry or its text is no sound block.
bool get_private_profile_struct_size(std::string_view section, std::string_view name,
                                     std::uint32_t & size, char const * file) noexcept;

/// One entry to write.
struct private_profile_entry {
    enum form : std::uint32_t {
        text, ///< `value` is written as the text behind the `=`
        block, ///< `value` is written as hexadecimal digits and a checksum
        removal, ///< the entry's line is removed; no effect when there is none
    };
    std::string_view section;
    std::string_view name;
    std::string_view value;
    form kind = text;
};

/// Writes entries one after the other, with one rewrite of the file for all of them. Here a NUL is
/// an ordinary byte. This is the step by which every write, also a `commit`, reaches the file.
///
/// The value of an existing entry is replaced in place; blanks before it stay unless the new value
/// begins with some. A new entry is added behind the last entry of its section, a new section at
/// the end of the file. A missing file is created. Every other byte stays. A new line gets the line
/// end of the line before it, LF in a new file.
///
/// The new content is written to a temporary file beside the old one and flushed to the disk. The
/// temporary file gets the owner, access list, attributes and mode of the old file and then
/// replaces it; a symbolic link stays and its target is replaced. So a reader finds the old content
/// or the new, also after a kill at any moment. If a link has no target yet, the host first creates
/// an empty one. A temporary file that a killed writer left is removed by the next write to the
/// file.
///
/// A file is overwritten in place if it has several hard links, if its owner, access list or
/// attributes cannot be kept, or if its folder cannot be found or allows no new file. Readers of
/// this layer wait for that. A failure restores the old bytes, but after a kill in the middle the
/// file is partly written. A read-only file is not written. A write that changes nothing does not
/// touch the file.
///
/// Writers exclude each other by locks that end with their process, on bytes far behind the end of
/// the file; a forked child does not inherit them. A writer waits up to 30 seconds for another
/// writer that makes no progress (it may be stopped, or its disk may hang), and up to 2 seconds for
/// a program that has locked the whole file by `fcntl`. Other locks of other programs have no
/// effect. If the file system has no locks, a write is done without them: concurrent writers then
/// lose each other's entries.
///
/// When the disk, a quota or a limit has no room for all entries, those are written that separate
/// writes would have written.
/// \returns false with the last error set when an entry was not written. `error_invalid_parameter`:
///          an entry was refused because its text could not be read back as that entry
///          (`can_be_read_back`); the others are written. `error_disk_full`.
///          `error_sharing_violation`: a lock could not be taken in time. `error_access_denied`,
///          `error_write_protect`, `error_file_not_found` (also for a missing folder),
///          `error_path_not_found` and others: the host's reason.
/// \throws std::bad_alloc  with nothing written, or with fewer entries than there was room for.
bool write_private_profile_entries(std::span<private_profile_entry const> entries,
                                   char const * file);

/// Writes one entry: now, or with the `private_profile_batch` that is open in the calling thread.
bool write_private_profile_string(std::string_view section, std::string_view name,
                                  std::string_view value, char const * file);

/// Writes `data` as two upper-case hexadecimal digits for each byte, and two more for the low eight
/// bits of the sum of all bytes. A null `data` with a nonzero `size` removes the entry. Writes now
/// or with the open batch.
bool write_private_profile_struct(std::string_view section, std::string_view name,
                                  void const * data, std::uint32_t size, char const * file);

} // namespace zel::platform
