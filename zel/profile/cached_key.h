// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/auto_ptr.h"
#include "zel/core/ref_obj.h"
#include "zel/profile/cached_value.h"
#include "zel/profile/iprofile.h"
#include "zel/profile/named_items.h"
#include "zel/text/string.h"
#include <cstdint>
#include <string_view>
#include <vector>

namespace zel::profile_cache {

/// One section in memory, with the entries that were used so far. Its name ends at the first NUL.
/// It holds a reference to the store below, so that its destructor can write the entries.
class ZEL_API cached_key : public ref_obj {
public:
    /// Reads nothing yet.
    cached_key(string const & section, auto_ptr<iprofile> store);
    /// Commits; raises nothing.
    ~cached_key() override;

    /// Calls `commit` of every entry, in ascending order of name.
    virtual void commit();

    /// The section's name; sections are sorted by it, byte by byte.
    string get_name() const { return name_; }
    std::string_view name_view() const noexcept { return name_; }
    bool operator<(cached_key const & other) const noexcept { return name_ < other.name_; }

    /// The entry, or the end of the entries.
    std::vector<auto_ptr<cached_value>>::iterator find_value(string const & entry);
    /// Inserts a new entry.
    void insert_value(auto_ptr<cached_value> value);

    /// The operations of a `cached_profile` on one section.
    string read_string(string const & entry, string const & default_value);
    std::int32_t read_int(string const & entry, std::int32_t default_value);
    bool read_bool(string const & entry, bool default_value);
    void write_string(string const & entry, string const & text);
    void write_int(string const & entry, std::int32_t number);
    void write_bool(string const & entry, bool truth);
    void write_binary(string const & entry, void * data, std::uint32_t size);
    std::uint32_t get_binary_size(string const & entry);
    void read_binary(string const & entry, void * data, std::uint32_t size);
    /// Reads a block from the store below and keeps it in memory.
    auto_ptr<cached_value> load_binary(string const & section, string const & entry);

    /// Called when a commit ran out of memory: entries that the store may not have stored become
    /// dirty again.
    void commit_failed() noexcept;
    /// Marks all entries as not dirty.
    void forget_changes() noexcept;

private:
    cached_value & binary_value(string const & entry);

    string const name_;
    named_items<cached_value> values_;
    auto_ptr<iprofile> profile_;
};

extern template class named_items<cached_value>;

} // namespace zel::profile_cache
