// SPDX-License-Identifier: MIT
#include "zel/profile/sub_profile.h"

namespace zel {

sub_profile::sub_profile(auto_ptr<iprofile> below, string const & section_path)
    : profile(std::move(below))
    , path(section_path)
{
}

sub_profile::~sub_profile() = default;

template <typename result, typename... parameters, typename... arguments>
result sub_profile::forward(result (iprofile::*operation)(string const &, parameters...),
                            string const & section, arguments &&... others)
{
    iprofile * const below = profile.operator->(); // raises before the path is formed
    return (below->*operation)(formPath(section), std::forward<arguments>(others)...);
}

string sub_profile::read_string(string const & section, string const & key,
                                string const & default_value)
{
    return forward(&iprofile::read_string, section, key, default_value);
}

std::int32_t sub_profile::read_int(string const & section, string const & key,
                                   std::int32_t default_value)
{
    return forward(&iprofile::read_int, section, key, default_value);
}

bool sub_profile::read_bool(string const & section, string const & key, bool default_value)
{
    return forward(&iprofile::read_bool, section, key, default_value);
}

void sub_profile::write_string(string const & section, string const & key, string const & value)
{
    forward(&iprofile::write_string, section, key, value);
}

void sub_profile::write_int(string const & section, string const & key, std::int32_t value)
{
    forward(&iprofile::write_int, section, key, value);
}

void sub_profile::write_bool(string const & section, string const & key, bool value)
{
    forward(&iprofile::write_bool, section, key, value);
}

void sub_profile::read_multiple(string const & section, string const & key, char separator,
                                string const & base_key,
                                std::list<std::pair<std::int32_t, string>> & result)
{
    forward(&iprofile::read_multiple, section, key, separator, base_key, result);
}

string sub_profile::read_by_index_string(string const & section, string const & key,
                                         std::int32_t index)
{
    return forward(&iprofile::read_by_index_string, section, key, index);
}

std::int32_t sub_profile::read_by_index_int(string const & section, string const & key,
                                            std::int32_t index)
{
    return forward(&iprofile::read_by_index_int, section, key, index);
}

void sub_profile::write_by_index_string(string const & section, string const & key,
                                        std::int32_t index, string const & value)
{
    forward(&iprofile::write_by_index_string, section, key, index, value);
}

void sub_profile::write_binary(string const & section, string const & key, void * data,
                               std::uint32_t size)
{
    forward(&iprofile::write_binary, section, key, data, size);
}

std::uint32_t sub_profile::get_binary_size(string const & section, string const & key)
{
    return forward(&iprofile::get_binary_size, section, key);
}

void sub_profile::read_binary(string const & section, string const & key, void * data,
                              std::uint32_t size)
{
    forward(&iprofile::read_binary, section, key, data, size);
}

string sub_profile::formPath(string const & section)
{
    string joined(path);
    if (std::size_t const size = path.size() + 1 + section.size(); size > joined.capacity()) {
        joined.reserve(size);
    }
    joined += '\\';
    joined += section;
    return joined;
}

} // namespace zel
