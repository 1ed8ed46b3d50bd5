// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/files/file_obj.h"
#include "zel/profile/iprofile.h"

namespace zel {

/// Settings in a private-profile file: `[section]` heads with `key=value` lines under them.
///
/// Nothing is cached in memory. A read uses the file as it is at that time. A write has reached the
/// file when the call returns; it changes one line and leaves every other byte unchanged. Readers
/// see the file before a write or after it, never in between. Writers in other threads and
/// processes lose none of each other's entries. Names are found without regard to the case of ASCII
/// letters.
///
/// Failures are not returned. Reads give the default, 0 or an empty result when the file cannot be
/// read. A write is lost when the file system refuses it or when its text could not be read back (a
/// line break, `=` in a key, `]` in a section). A refused or failed write leaves its reason in
/// `platform::last_error()`: 87 for such a text, 5 no right, 19 mounted read-only, 2 and 3 no such
/// folder, 112 no room, 32 another program keeps the file locked, 29 an error of the disk. A write
/// that succeeds leaves the last error unchanged. The only exception that these members raise is
/// `std::bad_alloc`. Reading cuts texts at 1023 bytes, at 127 for numbers and 63 for truth values;
/// writing cuts nothing.
///
/// One object may be used from any number of threads at once.
class ZEL_API ini_file : public iprofile, public file_obj {
public:
    /// Does not access the disk.
    /// \param file_name  is converted to a `path`; without a folder it is relative to the current
    ///                   one.
    /// \throws std::length_error  and `std::invalid_argument`, as the constructor of `path` does.
    explicit ini_file(string const & file_name);
    ~ini_file() override;

    /// Each base class has a reference count. This object uses the one of `iprofile`, whether it is
    /// held as an `ini_file` or as an `iprofile`.
    std::uint32_t inc_ref() noexcept { return iprofile::inc_ref(); }
    std::uint32_t dec_ref() noexcept { return iprofile::dec_ref(); }
    void undo_inc_ref() noexcept { iprofile::undo_inc_ref(); }
    std::uint32_t ref_count() const noexcept { return iprofile::ref_count(); }

    string read_string(string const & section, string const & key,
                       string const & default_value) override;
    std::int32_t read_int(string const & section, string const & key,
                          std::int32_t default_value) override;
    /// True for the text `true` in any case; false for every other text, including `1`.
    bool read_bool(string const & section, string const & key, bool default_value) override;

    using iprofile::read_bool;
    using iprofile::write_bool;

    void write_string(string const & section, string const & key, string const & value) override;
    void write_int(string const & section, string const & key, std::int32_t value) override;
    /// Writes `true` or `false`.
    void write_bool(string const & section, string const & key, bool value) override;

    void read_multiple(string const & section, string const & key, char separator,
                       string const & base_key,
                       std::list<std::pair<std::int32_t, string>> & result) override;

    string read_by_index_string(string const & section, string const & key,
                                std::int32_t index) override;
    std::int32_t read_by_index_int(string const & section, string const & key,
                                   std::int32_t index) override;
    void write_by_index_string(string const & section, string const & key, std::int32_t index,
                               string const & value) override;

    /// Writes two hexadecimal digits for each byte and two for a checksum. A null `data` with a
    /// nonzero size removes the entry.
    void write_binary(string const & section, string const & key, void * data,
                      std::uint32_t size) override;
    std::uint32_t get_binary_size(string const & section, string const & key) override;
    /// Leaves `data` unchanged unless the entry is a sound block of exactly `size` bytes.
    void read_binary(string const & section, string const & key, void * data,
                     std::uint32_t size) override;
};

} // namespace zel
