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

/// A store in memory in front of another one: the first read of an entry goes there and is
/// remembered, writes wait for `commit` or for the end of this object.
///
/// What a read has found stays, a default that was given for a missing entry too; changes that
/// others make in the store below are not seen. An entry keeps the type of its first use, text,
/// number or block: reads as another type give "", 0, false or no bytes, writes as another type are
/// dropped. Truth values are numbers here, and the store below gets `1` and `0`. Names differ by
/// the case of their letters, and `Sec` and `sec` end in one section of a private-profile file.
///
/// Dirty entries are written in ascending order of section and entry, with a call of the store below
/// for each. Texts and numbers go out at every commit from their first change on, blocks once a
/// change. An `ini_file` at the bottom collects what it gets in one commit and rewrites its file once,
/// at the end, or before that when the same thread reads from a file of settings. What it could not
/// write leaves its reason in the thread's last error, as after a single write.
///
/// The destructor writes too, and lets no exception out: a null store below loses what is dirty,
/// and a store that raises loses the entry that it raised for and those behind it in that section. A
/// store that comes back here meanwhile is served; what it adds is written too, and dropped when it
/// adds something each time.
///
/// Section, key and text end at their first NUL.
///
/// One object is for one thread at a time, also for reads, since they remember.
/// \code
///     zel::auto_ptr<zel::cached_profile> settings(
///         new zel::cached_profile(new zel::ini_file("C:\\home\\me\\app.ini")));
///     settings->write_int("window", "width", 800); // in memory
///     settings->commit();                          // on disk
/// \endcode
class ZEL_API cached_profile : public iprofile {
public:
    /// \param below  may be null; then reads of what is not in memory, and commits of what is
    ///               dirty, raise `memory_exception` with `null_pointer`.
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

    /// Reads list and texts through this object, so that what waits in memory is seen.
    void read_multiple(string const & section, string const & key, char separator,
                       string const & base_key,
                       std::list<std::pair<std::int32_t, string>> & result) override;

    // The numbered forms deal in texts.
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
    /// Copies at most as many bytes as there are; the rest of `data` stays.
    void read_binary(string const & section, string const & key, void * data,
                     std::uint32_t size) override;

    /// Writes what is dirty to the store below, which may be a cache that waits for its own commit.
    /// An exception of that store passes; what had not been written by then is still dirty.
    /// \throws std::bad_alloc  maybe after everything was given to an `ini_file`, whose file is as it
    ///                         was then; everything is still dirty.
    virtual void commit();

protected:
    /// What it keeps, by the names that derived classes know.
    using cached_key = profile_cache::cached_key;
    using cached_value = profile_cache::cached_value;
    using string_cached_value = profile_cache::string_cached_value;
    using int_cached_value = profile_cache::int_cached_value;
    using binary_cached_value = profile_cache::binary_cached_value;

    /// The section, or `keys.end()`.
    std::vector<auto_ptr<cached_key>>::iterator findKey(string const & section);
    /// Inserts a section that is not there yet.
    void insertKey(auto_ptr<cached_key> key);
    /// The section, created when it is missing; the store below is not asked.
    auto_ptr<cached_key> getKey(string const & section);

    auto_ptr<iprofile> profile; ///< the store below
    /// A vector of `auto_ptr<cached_key>`, sorted by name, byte by byte. Changed by `insertKey` and
    /// nothing else.
    profile_cache::named_items<cached_key> keys;

private:
    cached_key & key_of(string const & section);

    cached_key * last_used_ = nullptr; // of the sections
};

extern template class profile_cache::named_items<profile_cache::cached_key>;

} // namespace zel
