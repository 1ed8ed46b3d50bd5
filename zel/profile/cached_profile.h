// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/auto_ptr.h"
#include "zel/profile/cached_key.h"
#include "zel/profile/iprofile.h"
#include "zel/profile/named_items.h"
#include <cstdint>
#include <list>
#include <utility>
#include <vector>

namespace zel {

/// A cache in front of another store. The first read of an entry goes to that store and is
/// remembered; writes wait in memory for `commit` or for the end of this object.
///
/// What a read has found stays in memory, including the default given for a missing entry. Changes
/// that others make in the store below are not seen. An entry keeps the type of its first use:
/// text, number or block. Reads as another type give "", 0, false or no bytes; writes as another
/// type are ignored. Truth values are numbers here, and the store below gets `1` and `0`. Names
/// differ by case here, but `Sec` and `sec` are written to one section of a private-profile file.
///
/// Dirty entries are written in ascending order of section and entry, with one call of the store
/// below for each. A text or a number is written at every commit after its first change, a block
/// once for each change. An `ini_file` at the bottom collects the writes of one commit and rewrites
/// its file once at the end, or earlier if the same thread reads from a settings file. If a write
/// is refused or fails, its reason is in the thread's last error, as after a single write.
///
/// The destructor writes too, and raises nothing. If the store below is null, dirty entries are
/// lost. If the store raises, the entry for which it raised is lost, and those behind it in that
/// section. A store may call back into this object meanwhile. What it adds then is written too; if
/// it adds something in every round, the last additions are lost.
///
/// Section, key and text end at their first NUL.
///
/// Use an object in one thread at a time, also for reads, because reads store what they find.
/// \code
///     zel::auto_ptr<zel::cached_profile> settings(
///         new zel::cached_profile(new zel::ini_file("C:\\home\\me\\app.ini")));
///     settings->write_int("window", "width", 800); // in memory
///     settings->commit();                          // on disk
/// \endcode
class ZEL_API cached_profile : public iprofile {
public:
    /// \param below  may be null; then reads of entries that are not in memory, and commits of
    ///               dirty entries, raise `memory_exception` with `null_pointer`.
    explicit cached_profile(auto_ptr<iprofile> below);
    ~cached_profile() override;

    string read_string(string const & section, string const & key,
                       string const & default_value) override;
    std::int32_t read_int(string const & section, string const & key,
                          std::int32_t default_value) override;
    /// True for every number but 0.
    bool read_bool(string const & section, string const & key, bool default_value) override;

    using iprofile::read_bool;
    using iprofile::write_bool;

    void write_string(string const & section, string const & key, string const & value) override;
    void write_int(string const & section, string const & key, std::int32_t value) override;
    /// Writes the number 1 or 0.
    void write_bool(string const & section, string const & key, bool value) override;

    /// Reads the list and the texts through this object, so that values waiting in memory are seen.
    void read_multiple(string const & section, string const & key, char separator,
                       string const & base_key,
                       std::list<std::pair<std::int32_t, string>> & result) override;

    // The numbered forms read and write texts.
    string read_by_index_string(string const & section, string const & key,
                                std::int32_t index) override;
    std::int32_t read_by_index_int(string const & section, string const & key,
                                   std::int32_t index) override;
    void write_by_index_string(string const & section, string const & key, std::int32_t index,
                               string const & value) override;

    /// A null `data` with a size is ignored.
    void write_binary(string const & section, string const & key, void * data,
                      std::uint32_t size) override;
    std::uint32_t get_binary_size(string const & section, string const & key) override;
    /// Copies at most as many bytes as the block has; the rest of `data` is unchanged.
    void read_binary(string const & section, string const & key, void * data,
                     std::uint32_t size) override;

    /// Writes dirty entries to the store below, which may be a cache that waits for its own commit.
    /// It passes on exceptions of that store; entries that were not written by then are still
    /// dirty. A refused or failed write of an `ini_file` raises nothing; its reason is in the
    /// thread's last error.
    /// \throws std::bad_alloc  also after all entries were passed to an `ini_file`. Its file is
    ///                         then unchanged since its last rewrite, and all entries are still
    ///                         dirty.
    virtual void commit();

protected:
    /// The types of the sections and entries, under the names that derived classes use.
    using cached_key = profile_cache::cached_key;
    using cached_value = profile_cache::cached_value;
    using string_cached_value = profile_cache::string_cached_value;
    using int_cached_value = profile_cache::int_cached_value;
    using binary_cached_value = profile_cache::binary_cached_value;

    /// The section, or `keys.end()`.
    std::vector<auto_ptr<cached_key>>::iterator findKey(string const & section);
    /// Inserts a new section.
    void insertKey(auto_ptr<cached_key> key);
    /// The section, created when it is missing. The store below is not read.
    auto_ptr<cached_key> getKey(string const & section);

    auto_ptr<iprofile> profile; ///< the store below
    /// The sections as `auto_ptr<cached_key>`, sorted by name, byte by byte. Only `insertKey` may
    /// change it.
    profile_cache::named_items<cached_key> keys;

private:
    cached_key & key_of(string const & section);

    cached_key * last_used_ = nullptr; // the section of the last call
};

extern template class profile_cache::named_items<profile_cache::cached_key>;

} // namespace zel
