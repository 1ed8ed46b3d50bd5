// SPDX-License-Identifier: MIT
#pragma once

#include "zel/core/auto_ptr.h"
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

namespace zel {

/// Finds the objects of a vector that is sorted by name without looking through it: a hash table
/// beside the vector, with open addressing. Nothing is ever removed.
/// \tparam Item  has `std::string_view name_view() const`, which never changes. No two have the
///               same name.
template <typename Item> class name_index {
    using items = std::vector<auto_ptr<Item>>;

public:
    /// The item of that name, or null.
    Item * find(std::string_view name) const noexcept
    {
        if (slots_.empty()) {
            return nullptr;
        }
        std::uint64_t const hash = hash_of(name);
        for (std::size_t at = home_of(hash); slots_[at].item != nullptr; at = behind(at)) {
            if (slots_[at].hash == hash && equal(slots_[at].item->name_view(), name)) {
                return slots_[at].item;
            }
        }
        return nullptr;
    }

    /// Where the name is in the vector, or would be.
    static typename items::iterator place(items & sorted, std::string_view name) noexcept
    {
        return std::lower_bound(
            sorted.begin(), sorted.end(), name,
            [](auto const & item, auto wanted) { return item.get()->name_view() < wanted; });
    }

    /// Inserts an item that is not there yet, into the vector as well.
    /// \throws std::bad_alloc  with nothing changed.
    void insert(items & sorted, auto_ptr<Item> item)
    {
        if (2 * (sorted.size() + 1) > slots_.size()) {
            grow();
        }
        Item * const added = item.get();
        sorted.insert(place(sorted, added->name_view()), std::move(item));
        take({hash_of(added->name_view()), added});
    }

    /// Without a call for names of ordinary lengths.
    static bool equal(std::string_view a, std::string_view b) noexcept
    {
        std::size_t const size = a.size();
        if (size != b.size()) {
            return false;
        }
        if (size > 16) {
            return std::memcmp(a.data(), b.data(), size) == 0;
        }
        if (size > 8) { // two halves that overlap
            return word<std::uint64_t>(a.data()) == word<std::uint64_t>(b.data())
                && word<std::uint64_t>(a.data() + size - 8)
                == word<std::uint64_t>(b.data() + size - 8);
        }
        return short_word(a.data(), size) == short_word(b.data(), size);
    }

private:
    struct slot {
        std::uint64_t hash = 0;
        Item * item = nullptr;
    };

    static constexpr std::uint64_t multiplier = 0x9E3779B97F4A7C15; // 2^64 by the golden ratio

    std::size_t home_of(std::uint64_t hash) const noexcept
    {
        return static_cast<std::size_t>(hash * multiplier >> shift_);
    }
    std::size_t behind(std::size_t at) const noexcept { return (at + 1) & (slots_.size() - 1); }

    void take(slot added) noexcept
    {
        std::size_t at = home_of(added.hash);
        while (slots_[at].item != nullptr) {
            at = behind(at);
        }
        slots_[at] = added;
    }

    void grow()
    {
        std::vector<slot> old(std::max<std::size_t>(2 * slots_.size(), 8));
        old.swap(slots_);
        shift_ = old.empty() ? 61 : shift_ - 1;
        for (slot const & each : old) {
            if (each.item != nullptr) {
                take(each);
            }
        }
    }

    static std::uint64_t hash_of(std::string_view name) noexcept
    {
        std::uint64_t hash = name.size();
        for (; name.size() > 8; name.remove_prefix(8)) {
            hash = (hash ^ word<std::uint64_t>(name.data())) * multiplier;
            hash ^= hash >> 32;
        }
        hash = (hash ^ short_word(name.data(), name.size())) * multiplier;
        return hash ^ hash >> 32;
    }

    template <typename integer> static integer word(char const * bytes) noexcept
    {
        integer result;
        std::memcpy(&result, bytes, sizeof result);
        return result;
    }

    /// Up to eight bytes as one number; different bytes give different numbers.
    static std::uint64_t short_word(char const * bytes, std::size_t count) noexcept
    {
        if (count == 8) {
            return word<std::uint64_t>(bytes);
        }
        if (count >= 4) { // two halves that overlap
            return std::uint64_t{word<std::uint32_t>(bytes)} << 32
                | word<std::uint32_t>(bytes + count - 4);
        }
        std::uint64_t result = 0;
        for (std::size_t i = 0; i < count; ++i) {
            result = result << 8 | static_cast<unsigned char>(bytes[i]);
        }
        return result;
    }

    std::vector<slot> slots_; // a power of two, at most half of them taken
    int shift_ = 64; // leaves as many bits of a hash as there are slots
};

} // namespace zel
