// SPDX-License-Identifier: MIT
#include "zel/profile/cached_value.h"

#include <algorithm>

namespace zel::profile_cache {

cached_value::cached_value(string const & entry, bool is_dirty)
    : name(entry.c_str())
    , dirty(is_dirty)
{
}

cached_value::~cached_value() = default;

void cached_value::commit(auto_ptr<iprofile>, string const &) { }
string cached_value::get_string() { return {}; }
std::int32_t cached_value::get_int() { return 0; }
void cached_value::get_binary(void *, std::uint32_t) { }
std::uint32_t cached_value::get_binary_size() { return 0; }
void cached_value::set_string(string const &) { }
void cached_value::set_int(std::int32_t) { }
void cached_value::set_binary(void *, std::uint32_t) { }
void cached_value::commit_failed() noexcept { }

string_cached_value::string_cached_value(string const & entry, string const & text, bool is_dirty)
    : cached_value(entry, is_dirty)
    , value_(text.c_str())
{
}

string_cached_value::~string_cached_value() = default;

void string_cached_value::commit(auto_ptr<iprofile> store, string const & section)
{
    if (dirty) {
        store->write_string(section, name, value_);
    }
}

string string_cached_value::get_string() { return value_; }

void string_cached_value::set_string(string const & text)
{
    value_ = text.c_str();
    dirty = true;
}

int_cached_value::int_cached_value(string const & entry, std::int32_t number, bool is_dirty)
    : cached_value(entry, is_dirty)
    , value_(number)
{
}

int_cached_value::~int_cached_value() = default;

void int_cached_value::commit(auto_ptr<iprofile> store, string const & section)
{
    if (dirty) {
        store->write_int(section, name, value_);
    }
}

std::int32_t int_cached_value::get_int() { return value_; }

void int_cached_value::set_int(std::int32_t number)
{
    value_ = number;
    dirty = true;
}

binary_cached_value::binary_cached_value(string const & entry, void const * block,
                                         std::uint32_t length, bool is_dirty)
    : cached_value(entry, is_dirty)
    , data_(length)
    , size_(length)
{
    std::copy_n(static_cast<unsigned char const *>(block), length, data_.get());
}

binary_cached_value::~binary_cached_value() = default;

void binary_cached_value::commit(auto_ptr<iprofile> store, string const & section)
{
    if (dirty) {
        store->write_binary(section, name, data_.get(), size_);
        dirty = false;
        was_committed_ = true;
    }
}

void binary_cached_value::get_binary(void * target, std::uint32_t count)
{
    std::copy_n(data_.get(), std::min(count, size_), static_cast<unsigned char *>(target));
}

std::uint32_t binary_cached_value::get_binary_size() { return size_; }

void binary_cached_value::set_binary(void * block, std::uint32_t length)
{
    auto_buffer<unsigned char> copy(length);
    std::copy_n(static_cast<unsigned char const *>(block), length, copy.get());
    data_ = copy;
    size_ = length;
    dirty = true;
}

void binary_cached_value::commit_failed() noexcept { dirty = dirty || was_committed_; }

} // namespace zel::profile_cache
