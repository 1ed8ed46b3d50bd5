// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

/// Private-profile files: `[section]` heads on lines of their own, `name=value` entries under them.
///
/// Names are compared without regard to the case of ASCII letters. Blanks (space, tab, vertical
/// tab) do not count in the file around a value, around a name and in front of `[`; around a name
/// that a caller passes only spaces do not count. One pair of equal quotes (`"` or `'`) around a
/// value goes on reading. `;` begins a comment when it is a line's first visible byte. A section's
/// name ends at the first `]` or with its line. The first section of a name counts, and in it the
/// first entry of a name. Lines end in CR LF, LF or CR; a UTF-8 byte-order mark in front is
/// skipped.
///
/// A file is named by the host's own name, zero-terminated. What is no regular file, cannot be read
/// or holds more than 1 GiB is an error like a missing file. The host resolves the name: what it
/// refuses (a link that a stranger planted in a shared folder) is refused here. A file under a lease
/// is waited for as long as the host lets its holder have it. Section, name, value and default end
/// at their first NUL. Failures set the last error. Any thread and any process may call any function
/// at any time.
namespace zel::platform {

/// Finds an entry in one walk over the file, which is neither locked against writers that replace
/// it nor kept. A file that another program locks is read as it is found; one that is being
/// overwritten in its place is waited for, 2 seconds at most. Allocates nothing.
/// \param buffer  receives the value, or `default_value` as it was given when there is no such
///                entry, either of them cut to `size - 1` bytes, and a terminator.
/// \returns the bytes in front of the terminator.
std::uint32_t get_private_profile_string(std::string_view section, std::string_view name,
                                         std::string_view default_value, char * buffer,
                                         std::uint32_t size, char const * file) noexcept;

/// Fills `buffer` from an entry that `write_private_profile_struct` wrote.
/// \returns false with `buffer` untouched when that could not be done: with `error_bad_length` when
///          the entry is sound and holds another number of bytes, with another error when there is
///          no such entry or its text is no block.
bool get_private_profile_struct(std::string_view section, std::string_view name, void * buffer,
                                std::uint32_t size, char const * file);

/// Tells how many bytes such an entry holds, in one walk over the file and without allocation.
/// \returns false, with `size` 0, when there is no such entry or its text is no sound block.
bool get_private_profile_struct_size(std::string_view section, std::string_view name,
                                     std::uint32_t & size, char const * file) noexcept;

/// One entry to write.
struct private_profile_entry {
    enum form : std::uint32_t {
        text, ///< `value` is the text behind the `=`
        block, ///< `value` is written as hexadecimal digits and a checksum
        removal, ///< the entry's line goes; nothing happens when there is none
    };
    std::string_view section;
    std::string_view name;
    std::string_view value;
    form kind = text;
};

/// Writes entries one after the other, with one rewrite of the file for all of them. A NUL is a byte
/// like any other here.
///
/// An entry that exists has its value replaced in its place; blanks in front of it stay unless the
/// new value begins with some. A new one goes behind the last entry of its section, a new section
/// to the end of the file; a missing file is created. Every other byte stays, and a new line ends
/// as the line in front of it does, LF in a new file.
///
/// The new content goes to a temporary file beside the old one, is flushed to the disk, gets owner,
/// access list, attributes and mode of the old one and then its place; a symbolic link stays and its
/// target is replaced. So a reader, and a process that is killed at any moment, finds the old content
/// or the new. A link that leads to no file yet gets an empty one first, which the host makes. What a
/// killed writer left behind goes with the next write to the file.
///
/// A file is overwritten in its place if it has several hard links, if its owner, access list or
/// attributes cannot be kept, or if its folder cannot be found or admits no new file. Readers of this
/// layer wait for that. A failure puts the old bytes back, but a kill in the middle leaves a part. A
/// read-only file is not written. A write that changes nothing leaves the file alone.
///
/// Writers take turns by locks that end with their process, on bytes far behind the end of the file;
/// a forked child does not keep them. A writer waits 30 seconds for another one that does not go on
/// (it may be stopped, or its disk is stuck), and 2 seconds for a program that has locked all of the
/// file by `fcntl`. Other locks of other programs are of no concern. Where the file system has no
/// locks a write is done without: there writers lose each other's entries when they meet.
///
/// When the disk, a quota or a limit has no room for all entries, those are written that single
/// writes would have written.
/// \returns false with the last error set when an entry was not written: `error_invalid_parameter`
///          when one was refused because its text could not be found again as that entry (the others
///          are written); `error_disk_full`; `error_sharing_violation` when the time was over;
///          `error_access_denied`, `error_write_protect`, `error_file_not_found` (for a folder too),
///          `error_path_not_found` and others as the host gives them.
/// \throws std::bad_alloc  with nothing written, or with less than there was room for.
bool write_private_profile_entries(std::span<private_profile_entry const> entries,
                                   char const * file);

/// Writes one entry, now or with the `private_profile_batch` that is open in the calling thread.
bool write_private_profile_string(std::string_view section, std::string_view name,
                                  std::string_view value, char const * file);

/// Writes `data` as two upper-case hexadecimal digits a byte, and two more with the low eight bits
/// of the sum of all bytes. A null `data` with a `size` removes the entry. Now or with the open batch.
bool write_private_profile_struct(std::string_view section, std::string_view name,
                                  void const * data, std::uint32_t size, char const * file);

} // namespace zel::platform
