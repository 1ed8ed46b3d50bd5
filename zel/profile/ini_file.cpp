// SPDX-License-Identifier: MIT
#include "zel/profile/ini_file.h"

#include "zel/base/ascii.h"
#include "zel/platform/paths/host_path.h"
#include "zel/platform/paths/max_path.h"
#include "zel/platform/profiles/private_profile.h"
#include "zel/profile/number_list.h"

namespace zel {
namespace {

/// The file's name in the host's form. Empty when the path has none; the file then counts as
/// missing.
class host_file {
public:
    explicit host_file(path const & source) noexcept
    {
        platform::to_host_path(name_, source.c_str());
    }

    operator char const *() const noexcept { return name_; }

private:
    char name_[platform::max_path];
};

/// A value in an array of its own. It ends at a NUL in the file.
template <std::uint32_t size> class value_text {
public:
    value_text(path const & file, std::string_view section, std::string_view name,
               std::string_view default_value) noexcept
    {
        platform::get_private_profile_string(section, name, default_value, text_, size,
                                             host_file(file));
    }

    std::string_view view() const noexcept { return text_; }

private:
    char text_[size];
};

using long_value = value_text<1024>;

} // namespace

ini_file::ini_file(string const & file_name)
    : file_obj(path(file_name))
{
}

ini_file::~ini_file() = default;

string ini_file::read_string(string const & section, string const & key,
                             string const & default_value)
{
    return long_value(file_path, section, key, default_value).view();
}

std::int32_t ini_file::read_int(string const & section, string const & key,
                                std::int32_t default_value)
{
    value_text<128> const value(file_path, section, key, decimal_text(default_value));
    return leading_number(value.view());
}

bool ini_file::read_bool(string const & section, string const & key, bool default_value)
{
    value_text<64> const value(file_path, section, key, default_value ? "true" : "false");
    return ascii::equal_without_case(value.view(), "true");
}

void ini_file::write_string(string const & section, string const & key, string const & value)
{
    platform::write_private_profile_string(section, key, value, host_file(file_path));
}

void ini_file::write_int(string const & section, string const & key, std::int32_t value)
{
    platform::write_private_profile_string(section, key, decimal_text(value), host_file(file_path));
}

void ini_file::write_bool(string const & section, string const & key, bool value)
{
    platform::write_private_profile_string(section, key, value ? "true" : "false",
                                           host_file(file_path));
}

void ini_file::read_multiple(string const & section, string const & key, char separator,
                             string const & base_key,
                             std::list<std::pair<std::int32_t, string>> & result)
{
    result.clear();
    long_value const list(file_path, section, key, "");
    for (std::int32_t const number : split_numbers(list.view(), separator)) {
        string const name = numbered_name(base_key, number);
        result.emplace_back(number, long_value(file_path, section, name, "").view());
    }
}

string ini_file::read_by_index_string(string const & section, string const & key,
                                      std::int32_t index)
{
    return long_value(file_path, section, numbered_name(key, index), "").view();
}

std::int32_t ini_file::read_by_index_int(string const & section, string const & key,
                                         std::int32_t index)
{
    return leading_number(long_value(file_path, section, numbered_name(key, index), "").view());
}

void ini_file::write_by_index_string(string const & section, string const & key, std::int32_t index,
                                     string const & value)
{
    platform::write_private_profile_string(section, numbered_name(key, index), value,
                                           host_file(file_path));
}

void ini_file::write_binary(string const & section, string const & key, void * data,
                            std::uint32_t size)
{
    platform::write_private_profile_struct(section, key, data, size, host_file(file_path));
}

std::uint32_t ini_file::get_binary_size(string const & section, string const & key)
{
    std::uint32_t size = 0;
    platform::get_private_profile_struct_size(section, key, size, host_file(file_path));
    return size;
}

void ini_file::read_binary(string const & section, string const & key, void * data,
                           std::uint32_t size)
{
    platform::get_private_profile_struct(section, key, data, size, host_file(file_path));
}

} // namespace zel
