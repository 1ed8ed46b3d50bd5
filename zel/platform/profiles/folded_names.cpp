// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/folded_names.h"

#include "zel/base/ascii.h"
#include "zel/base/load_word.h"
#include <algorithm>
#include <bit>

namespace zel::platform {
namespace {

/// Eight bytes with their capital letters converted to small ones.
std::uint64_t folded(std::uint64_t bytes) noexcept
{
    constexpr std::uint64_t each = 0x0101010101010101;
    std::uint64_t const low = bytes & 0x7F * each;
    std::uint64_t const from_a = low + (0x80 - 'A') * each; // the high bit: 'A' and above
    std::uint64_t const behind_z = low + (0x7F - 'Z') * each; // the high bit: above 'Z'
    std::uint64_t const capital = from_a & ~behind_z & ~bytes & 0x80 * each;
    return bytes | capital >> 2;
}

/// Compares the bytes first: most names are always written in the same case.
bool same_name(std::string_view a, std::string_view b) noexcept
{
    return a == b || ascii::equal_without_case(a, b);
}

std::uint32_t hash_of(std::string_view name) noexcept
{
    constexpr std::uint64_t multiplier = 0x9E3779B97F4A7C15; // 2^64 / golden ratio
    std::uint64_t hash = name.size();
    auto const mix = [&hash](std::uint64_t bytes) {
        hash = (hash ^ folded(bytes)) * multiplier;
        hash ^= hash >> 32;
    };
    for (; name.size() >= 8; name.remove_prefix(8)) {
        mix(load_word<std::uint64_t>(name.data()));
    }
    std::uint64_t rest = 0;
    for (char const c : name) {
        rest = rest << 8 | static_cast<unsigned char>(c);
    }
    mix(rest);
    return static_cast<std::uint32_t>(hash * multiplier >> 32);
}

} // namespace

/// The slot of the name, or the free slot in which it belongs.
std::size_t folded_names::place_of(std::string_view name, std::uint32_t hash) const noexcept
{
    std::size_t const last = slots_.size() - 1;
    std::size_t at = hash & last;
    while (slots_[at].number != free
           && (slots_[at].hash != hash || !same_name(names_[slots_[at].number].name, name))) {
        at = (at + 1) & last;
    }
    return at;
}

void folded_names::reserve(std::size_t count)
{
    std::size_t const wanted = std::bit_ceil(std::max<std::size_t>(2 * count, 16));
    if (wanted <= slots_.size()) {
        return;
    }
    std::vector<slot> old(wanted);
    old.swap(slots_);
    for (slot const & each : old) {
        if (each.number != free) {
            slots_[place_of(names_[each.number].name, each.hash)] = each;
        }
    }
}

void folded_names::add(std::string_view name, std::size_t value)
{
    reserve(names_.size() + 1);
    std::uint32_t const hash = hash_of(name);
    slot & place = slots_[place_of(name, hash)];
    if (place.number == free) {
        names_.push_back({name, value});
        place = {hash, static_cast<std::uint32_t>(names_.size() - 1)};
    }
}

std::size_t folded_names::find(std::string_view name) const noexcept
{
    if (slots_.empty()) {
        return none;
    }
    slot const & place = slots_[place_of(name, hash_of(name))];
    return place.number == free ? none : names_[place.number].value;
}

void folded_names::clear() noexcept
{
    names_.clear();
    slots_.clear();
}

} // namespace zel::platform
