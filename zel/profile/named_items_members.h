// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/load_word.h"
#include "zel/profile/named_items.h"
#include <algorithm>
#include <bit>
#include <cstring>
#include <new>
#include <utility>

/// The members of `named_items`, for the sources that instantiate it.
namespace zel::profile_cache {

/// Up to eight bytes as one number; different bytes give different numbers.
inline std::uint64_t short_word(char const * bytes, std::size_t count) noexcept
{
    if (count == 8) {
        return load_word<std::uint64_t>(bytes);
    }
    if (count >= 4) { // two halves that overlap
        return std::uint64_t{load_word<std::uint32_t>(bytes)} << 32
            | load_word<std::uint32_t>(bytes + count - 4);
    }
    std::uint64_t result = 0;
    for (std::size_t i = 0; i < count; ++i) {
        result = result << 8 | static_cast<unsigned char>(bytes[i]);
    }
    return result;
}

/// True if two names are equal; makes no call for names of ordinary lengths.
inline bool same_name(std::string_view a, std::string_view b) noexcept
{
    std::size_t const size = a.size();
    if (size != b.size()) {
        return false;
    }
    if (size > 16) {
        return std::memcmp(a.data(), b.data(), size) == 0;
    }
    if (size > 8) { // two halves that overlap
        return load_word<std::uint64_t>(a.data()) == load_word<std::uint64_t>(b.data())
            && load_word<std::uint64_t>(a.data() + size - 8)
            == load_word<std::uint64_t>(b.data() + size - 8);
    }
    return short_word(a.data(), size) == short_word(b.data(), size);
}

constexpr std::uint64_t hash_multiplier = 0x9E3779B97F4A7C15; // 2^64 / golden ratio

inline std::uint64_t hash_of_name(std::string_view name) noexcept
{
    std::uint64_t hash = name.size();
    for (; name.size() > 8; name.remove_prefix(8)) {
        hash = (hash ^ load_word<std::uint64_t>(name.data())) * hash_multiplier;
        hash ^= hash >> 32;
    }
    hash = (hash ^ short_word(name.data(), name.size())) * hash_multiplier;
    return hash ^ hash >> 32;
}

/// Eight bytes from a position on, as a number that orders like the bytes; zeros behind the end.
inline std::uint64_t ordered_word(std::string_view name, std::size_t position) noexcept
{
    unsigned char bytes[8] = {};
    name.substr(position).copy(reinterpret_cast<char *>(bytes), sizeof bytes);
    std::uint64_t result = 0;
    for (unsigned char const byte : bytes) {
        result = result << 8 | byte;
    }
    return result;
}

/// Sorts by name. Most comparisons use only eight bytes behind the common prefix of all names, and
/// need not read the items.
template <typename Iterator> void sort_by_name(Iterator first, Iterator last) noexcept
{
    struct keyed {
        std::uint64_t key;
        typename std::iterator_traits<Iterator>::value_type item;
    };
    auto const is_less = [](auto const & a, auto const & b) {
        return a.get()->name_view() < b.get()->name_view();
    };
    std::vector<keyed> all;
    try {
        all.reserve(static_cast<std::size_t>(last - first));
    } catch (std::bad_alloc const &) {
        std::sort(first, last, is_less);
        return;
    }
    std::string_view common = (*first).get()->name_view();
    for (Iterator at = first; at != last; ++at) {
        std::string_view const name = (*at).get()->name_view();
        auto const end = std::mismatch(common.begin(), common.end(), name.begin(), name.end());
        common = common.substr(0, static_cast<std::size_t>(end.first - common.begin()));
    }
    for (Iterator at = first; at != last; ++at) {
        std::uint64_t const key = ordered_word((*at).get()->name_view(), common.size());
        all.push_back({key, std::move(*at)});
    }
    std::sort(all.begin(), all.end(), [&](keyed const & a, keyed const & b) {
        return a.key != b.key ? a.key < b.key : is_less(a.item, b.item);
    });
    for (keyed & each : all) {
        *first++ = std::move(each.item);
    }
}

template <typename Item> Item * named_items<Item>::find(std::string_view name) const noexcept
{
    Item * const found = find_exactly(name);
    if (found != nullptr) {
        return found;
    }
    // No item's name contains a NUL, so searching for a NUL last loses nothing.
    std::string_view const front = name.substr(0, name.find('\0'));
    return front.size() == name.size() ? nullptr : find_exactly(front);
}

template <typename Item>
Item * named_items<Item>::find_exactly(std::string_view name) const noexcept
{
    if (slots_.empty()) {
        return nullptr;
    }
    std::uint64_t const hash = hash_of_name(name);
    auto at = static_cast<std::size_t>(hash * hash_multiplier >> shift_);
    for (; slots_[at].item != nullptr; at = (at + 1) & (slots_.size() - 1)) {
        if (slots_[at].hash == hash && same_name(slots_[at].item->name_view(), name)) {
            return slots_[at].item;
        }
    }
    return nullptr;
}

template <typename Item>
typename named_items<Item>::iterator named_items<Item>::place_of(std::string_view name) noexcept
{
    Item const * const wanted = find(name);
    if (wanted == nullptr) {
        return end();
    }
    return std::lower_bound(
        begin(), end(), wanted->name_view(),
        [](auto const & item, auto const & text) { return item.get()->name_view() < text; });
}

template <typename Item> void named_items<Item>::insert(auto_ptr<Item> item)
{
    if (2 * (items_.size() + 1) > slots_.size()) {
        grow();
    }
    Item * const added = item.get();
    bool const is_next = ordered_ == items_.size()
        && (items_.empty() || items_.back().get()->name_view() < added->name_view());
    items_.push_back(std::move(item));
    ordered_ += is_next ? 1 : 0;
    add_slot({hash_of_name(added->name_view()), added});
}

template <typename Item> void named_items<Item>::put_in_order() noexcept
{
    auto const middle = items_.begin() + static_cast<std::ptrdiff_t>(ordered_);
    sort_by_name(middle, items_.end());
    std::inplace_merge(items_.begin(), middle, items_.end(), [](auto const & a, auto const & b) {
        return a.get()->name_view() < b.get()->name_view();
    });
    ordered_ = items_.size();
}

template <typename Item> typename named_items<Item>::vector named_items<Item>::take() noexcept
{
    vector all = std::move(in_order());
    items_.clear();
    ordered_ = 0;
    slots_.clear();
    shift_ = 64;
    return all;
}

template <typename Item> void named_items<Item>::add_slot(slot added) noexcept
{
    auto at = static_cast<std::size_t>(added.hash * hash_multiplier >> shift_);
    while (slots_[at].item != nullptr) {
        at = (at + 1) & (slots_.size() - 1);
    }
    slots_[at] = added;
}

template <typename Item> void named_items<Item>::grow()
{
    std::vector<slot> old(std::max<std::size_t>(2 * slots_.size(), 8));
    old.swap(slots_);
    shift_ = 64 - std::countr_zero(slots_.size());
    for (slot const & each : old) {
        if (each.item != nullptr) {
            add_slot(each);
        }
    }
}

} // namespace zel::profile_cache
