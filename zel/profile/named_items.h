// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/core/auto_ptr.h"
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace zel::profile_cache {

/// Objects with names. They are found by a hash of the name, and listed in ascending order of their
/// names, byte by byte. New items are sorted in when the order is next asked for. Asking for the
/// order after each of many insertions costs linear time each time.
/// \tparam Item  has `std::string_view name_view() const`, whose result never changes. No two items
///               have the same name.
template <typename Item> class ZEL_API named_items {
public:
    /// In the order of the names.
    using vector = std::vector<auto_ptr<Item>>;
    using iterator = typename vector::iterator;

    /// The item of that name, or null. Names end at their first NUL.
    Item * find(std::string_view name) const noexcept;
    /// Adds an item with a new name.
    /// \throws std::bad_alloc  with nothing changed.
    void insert(auto_ptr<Item> item);

    /// All items in the order of their names.
    iterator begin() noexcept { return in_order().begin(); }
    iterator end() noexcept { return in_order().end(); }
    auto_ptr<Item> & front() noexcept { return in_order().front(); }
    auto_ptr<Item> & back() noexcept { return in_order().back(); }
    auto_ptr<Item> & operator[](std::size_t i) noexcept { return in_order()[i]; }
    operator vector &() noexcept { return in_order(); }
    std::size_t size() const noexcept { return items_.size(); }
    bool empty() const noexcept { return items_.empty(); }

    /// The position of that name in the order, or the end.
    iterator place_of(std::string_view name) noexcept;
    /// The item at an index. Items added since the order was last asked for are behind the others.
    Item & item(std::size_t i) const noexcept { return *items_[i].get(); }
    vector & in_order() noexcept
    {
        if (ordered_ != items_.size()) {
            put_in_order();
        }
        return items_;
    }
    /// Returns all items in their order, and leaves this empty.
    vector take() noexcept;

private:
    struct slot {
        std::uint64_t hash;
        Item * item;
    };

    Item * find_exactly(std::string_view name) const noexcept;
    void put_in_order() noexcept;
    void add_slot(slot added) noexcept;
    void grow();

    vector items_;
    std::size_t ordered_ = 0; // how many items at the front are in order
    std::vector<slot> slots_; // a power of two, at most half of them taken
    int shift_ = 64; // leaves as many bits of a hash as a slot's index has
};

} // namespace zel::profile_cache
