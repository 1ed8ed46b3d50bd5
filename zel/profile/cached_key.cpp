// SPDX-License-Identifier: MIT
#include "zel/profile/cached_key.h"

#include "zel/platform/profiles/private_profile_batch.h"
#include "zel/profile/named_items_members.h"
#include <algorithm>

namespace zel::profile_cache {

template class named_items<cached_value>;

cached_key::cached_key(string const & section, auto_ptr<iprofile> store)
    : name_(section.c_str())
    , profile_(std::move(store))
{
}

cached_key::~cached_key()
{
    try {
        cached_key::commit();
    } catch (...) { // a destructor can't report a failure
    }
    profile_ = nullptr;
    for (auto & value : values_) {
        value = nullptr;
    }
}

void cached_key::commit()
{
    platform::private_profile_batch together;
    values_.in_order();
    // By index: the store may call back into this cache and add entries.
    for (std::size_t i = 0; i < values_.size(); ++i) {
        values_.item(i).commit(profile_, name_);
    }
    together.finish();
}

std::vector<auto_ptr<cached_value>>::iterator cached_key::find_value(string const & entry)
{
    return values_.place_of(entry);
}

void cached_key::insert_value(auto_ptr<cached_value> value) { values_.insert(std::move(value)); }

string cached_key::read_string(string const & entry, string const & default_value)
{
    cached_value * value = values_.find(entry);
    if (value == nullptr) {
        string const text = profile_->read_string(name_, entry, default_value);
        insert_value(value = new string_cached_value(entry, text, false));
    }
    return value->get_string();
}

std::int32_t cached_key::read_int(string const & entry, std::int32_t default_value)
{
    cached_value * value = values_.find(entry);
    if (value == nullptr) {
        std::int32_t const number = profile_->read_int(name_, entry, default_value);
        insert_value(value = new int_cached_value(entry, number, false));
    }
    return value->get_int();
}

bool cached_key::read_bool(string const & entry, bool default_value)
{
    return read_int(entry, default_value ? 1 : 0) != 0;
}

void cached_key::write_string(string const & entry, string const & text)
{
    if (cached_value * const value = values_.find(entry)) {
        value->set_string(text);
    } else {
        insert_value(new string_cached_value(entry, text, true));
    }
}

void cached_key::write_int(string const & entry, std::int32_t number)
{
    if (cached_value * const value = values_.find(entry)) {
        value->set_int(number);
    } else {
        insert_value(new int_cached_value(entry, number, true));
    }
}

void cached_key::write_bool(string const & entry, bool truth) { write_int(entry, truth ? 1 : 0); }

void cached_key::write_binary(string const & entry, void * data, std::uint32_t size)
{
    if (data == nullptr && size > 0) {
        return;
    }
    if (cached_value * const value = values_.find(entry)) {
        value->set_binary(data, size);
    } else {
        insert_value(new binary_cached_value(entry, data, size, true));
    }
}

std::uint32_t cached_key::get_binary_size(string const & entry)
{
    return binary_value(entry).get_binary_size();
}

void cached_key::read_binary(string const & entry, void * data, std::uint32_t size)
{
    cached_value & value = binary_value(entry);
    if (data != nullptr) {
        value.get_binary(data, size);
    }
}

auto_ptr<cached_value> cached_key::load_binary(string const & section, string const & entry)
{
    std::uint32_t const size = profile_->get_binary_size(section, entry);
    // If the store does not have it any more, it leaves the bytes unchanged.
    auto_buffer<unsigned char> bytes(size);
    std::fill_n(bytes.get(), size, static_cast<unsigned char>(0));
    profile_->read_binary(section, entry, bytes.get(), size);
    auto_ptr<cached_value> value(new binary_cached_value(entry, bytes.get(), size, false));
    insert_value(value);
    return value;
}

void cached_key::commit_failed() noexcept
{
    for (auto const & value : values_) {
        value.get()->commit_failed();
    }
}

void cached_key::forget_changes() noexcept
{
    for (auto const & value : values_) {
        value.get()->forget_change();
    }
}

cached_value & cached_key::binary_value(string const & entry)
{
    cached_value * const value = values_.find(entry);
    return value != nullptr ? *value : *load_binary(name_, entry);
}

} // namespace zel::profile_cache
