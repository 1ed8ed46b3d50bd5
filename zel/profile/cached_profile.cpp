// SPDX-License-Identifier: MIT
#include "zel/profile/cached_profile.h"

#include "zel/platform/profiles/private_profile_batch.h"
#include "zel/profile/named_items_members.h"
#include "zel/profile/number_list.h"
#include <utility>

namespace zel {

template class profile_cache::named_items<profile_cache::cached_key>;

cached_profile::cached_profile(auto_ptr<iprofile> below)
    : profile(std::move(below))
{
}

cached_profile::~cached_profile()
{
    platform::private_profile_batch const together;
    // The store may call back into this cache while a section writes itself. It then finds a table
    // without the sections that are being written; what it adds is written in the next round.
    for (int round = 0; round < 8 && !keys.empty(); ++round) {
        last_used_ = nullptr;
        for (auto & key : keys.take()) {
            key = nullptr;
        }
    }
    for (auto & key : keys) {
        key.get()->forget_changes();
    }
}

string cached_profile::read_string(string const & section, string const & key,
                                   string const & default_value)
{
    return key_of(section).read_string(key, default_value);
}

std::int32_t cached_profile::read_int(string const & section, string const & key,
                                      std::int32_t default_value)
{
    return key_of(section).read_int(key, default_value);
}

bool cached_profile::read_bool(string const & section, string const & key, bool default_value)
{
    return key_of(section).read_bool(key, default_value);
}

void cached_profile::write_string(string const & section, string const & key, string const & value)
{
    key_of(section).write_string(key, value);
}

void cached_profile::write_int(string const & section, string const & key, std::int32_t value)
{
    key_of(section).write_int(key, value);
}

void cached_profile::write_bool(string const & section, string const & key, bool value)
{
    key_of(section).write_bool(key, value);
}

void cached_profile::read_multiple(string const & section, string const & key, char separator,
                                   string const & base_key,
                                   std::list<std::pair<std::int32_t, string>> & result)
{
    cached_key & list = key_of(section);
    result.clear();
    string const text = list.read_string(key, "");
    for (std::int32_t const number : split_numbers(text, separator)) {
        result.emplace_back(number, read_string(section, numbered_name(base_key, number), ""));
    }
}

string cached_profile::read_by_index_string(string const & section, string const & key,
                                            std::int32_t index)
{
    return key_of(section).read_string(numbered_name(key, index), "");
}

std::int32_t cached_profile::read_by_index_int(string const & section, string const & key,
                                               std::int32_t index)
{
    return leading_number(key_of(section).read_string(numbered_name(key, index), ""));
}

void cached_profile::write_by_index_string(string const & section, string const & key,
                                           std::int32_t index, string const & value)
{
    key_of(section).write_string(numbered_name(key, index), value);
}

void cached_profile::write_binary(string const & section, string const & key, void * data,
                                  std::uint32_t size)
{
    key_of(section).write_binary(key, data, size);
}

std::uint32_t cached_profile::get_binary_size(string const & section, string const & key)
{
    return key_of(section).get_binary_size(key);
}

void cached_profile::read_binary(string const & section, string const & key, void * data,
                                 std::uint32_t size)
{
    key_of(section).read_binary(key, data, size);
}

void cached_profile::commit()
{
    platform::private_profile_batch together;
    try {
        keys.in_order();
        // By index: the store may call back into this cache and add sections.
        for (std::size_t i = 0; i < keys.size(); ++i) {
            keys.item(i).commit();
        }
        together.finish();
    } catch (...) {
        if (!platform::private_profile_batch::write_what_waits()) {
            for (auto const & key : keys) {
                key.get()->commit_failed();
            }
        }
        throw;
    }
}

std::vector<auto_ptr<cached_profile::cached_key>>::iterator
cached_profile::findKey(string const & section)
{
    return keys.place_of(section);
}

void cached_profile::insertKey(auto_ptr<cached_key> key) { keys.insert(std::move(key)); }

auto_ptr<cached_profile::cached_key> cached_profile::getKey(string const & section)
{
    return &key_of(section);
}

/// `getKey` without a reference for the caller: sections live as long as this object.
cached_profile::cached_key & cached_profile::key_of(string const & section)
{
    if (last_used_ == nullptr || !profile_cache::same_name(last_used_->name_view(), section)) {
        cached_key * found = keys.find(section);
        if (found == nullptr) {
            auto_ptr<cached_key> const added(found = new cached_key(section, profile));
            insertKey(added);
        }
        last_used_ = found;
    }
    return *last_used_;
}

} // namespace zel
