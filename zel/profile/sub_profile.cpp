// SPDX-License-Identifier: MIT
#include "zel/profile/sub_profile.h"

#include "zel/base/load_word.h"
#include <bit>
#include <cstring>
#include <string_view>

namespace zel {
namespace {

__extension__ using word_pair = unsigned __int128;

std::uint64_t word_of(char const * bytes, std::size_t count) noexcept
{
    if (count >= 8) {
        return load_word<std::uint64_t>(bytes);
    }
    if (count >= 4) {
        return load_word<std::uint32_t>(bytes)
            | std::uint64_t{load_word<std::uint32_t>(bytes + count - 4)} << 8 * (count - 4);
    }
    std::uint64_t result = 0;
    for (std::size_t i = 0; i < count; ++i) {
        result |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << 8 * i;
    }
    return result;
}

/// Fewer than 16 bytes as one number; the first byte is the lowest.
word_pair words_of(std::string_view text) noexcept
{
    word_pair const low = word_of(text.data(), text.size());
    return text.size() <= 8 ? low
                            : low | word_pair{word_of(text.data() + 8, text.size() - 8)} << 64;
}

} // namespace

sub_profile::sub_profile(auto_ptr<iprofile> below, string const & section_path)
    : profile(std::move(below))
    , path(section_path.c_str())
{
}

sub_profile::~sub_profile() = default;

/// \param operation  called with the store below and the section's full name.
template <typename Operation>
auto sub_profile::forward(string const & section, Operation && operation)
{
    iprofile & below = *profile.operator->(); // raises first if the store is null
    return operation(below, formPath(section));
}

string sub_profile::read_string(string const & section, string const & key,
                                string const & default_value)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.read_string(joined, key, default_value);
    });
}

std::int32_t sub_profile::read_int(string const & section, string const & key,
                                   std::int32_t default_value)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.read_int(joined, key, default_value);
    });
}

bool sub_profile::read_bool(string const & section, string const & key, bool default_value)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.read_bool(joined, key, default_value);
    });
}

void sub_profile::write_string(string const & section, string const & key, string const & value)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.write_string(joined, key, value);
    });
}

void sub_profile::write_int(string const & section, string const & key, std::int32_t value)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.write_int(joined, key, value);
    });
}

void sub_profile::write_bool(string const & section, string const & key, bool value)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.write_bool(joined, key, value);
    });
}

void sub_profile::read_multiple(string const & section, string const & key, char separator,
                                string const & base_key,
                                std::list<std::pair<std::int32_t, string>> & result)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.read_multiple(joined, key, separator, base_key, result);
    });
}

string sub_profile::read_by_index_string(string const & section, string const & key,
                                         std::int32_t index)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.read_by_index_string(joined, key, index);
    });
}

std::int32_t sub_profile::read_by_index_int(string const & section, string const & key,
                                            std::int32_t index)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.read_by_index_int(joined, key, index);
    });
}

void sub_profile::write_by_index_string(string const & section, string const & key,
                                        std::int32_t index, string const & value)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.write_by_index_string(joined, key, index, value);
    });
}

void sub_profile::write_binary(string const & section, string const & key, void * data,
                               std::uint32_t size)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.write_binary(joined, key, data, size);
    });
}

std::uint32_t sub_profile::get_binary_size(string const & section, string const & key)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.get_binary_size(joined, key);
    });
}

void sub_profile::read_binary(string const & section, string const & key, void * data,
                              std::uint32_t size)
{
    return forward(section, [&](iprofile & below, string const & joined) {
        return below.read_binary(joined, key, data, size);
    });
}

string sub_profile::formPath(string const & section)
{
    std::size_t const front = path.size() + 1;
    std::size_t const size = front + section.size();
    string joined;
    if (size >= sizeof(word_pair) || std::endian::native != std::endian::little) {
        joined.reserve(size);
        joined.append(path).append("\\").append(section);
        return joined;
    }
    // Joined in registers and stored in one step: a cache below reads the name in whole words right
    // away, and would have to wait for a series of overlapping stores.
    word_pair const text
        = words_of(path) | (words_of("\\") << 8 * path.size()) | (words_of(section) << 8 * front);
    joined.resize(sizeof text - 1); // and a terminator
    std::memcpy(joined.data(), &text, sizeof text);
    joined.resize(size);
    return joined;
}

} // namespace zel
