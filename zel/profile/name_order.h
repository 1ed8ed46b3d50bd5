// SPDX-License-Identifier: MIT
#pragma once

#include "zel/core/auto_ptr.h"
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

namespace zel {

/// Searches a sorted vector of objects with names, and keeps beside it eight bytes of each name as
/// an integer. Only names that are equal in these are compared as texts, so that a search hardly
/// ever leaves one small array. What all names begin with is left out of the integers.
/// \tparam Item  has `std::string_view name_view() const`. No two have the same name.
template <typename Item> class name_order {
    using items = std::vector<auto_ptr<Item>>;

public:
    struct place {
        std::size_t position; // of the first name that is not less
        bool found; // and whether it is equal
    };

    place find(items const & sorted, std::string_view name) const noexcept
    {
        if (words_.empty()) {
            return {0, false};
        }
        std::string_view const shared = sorted.front().get()->name_view().substr(0, shared_);
        int const before = name.substr(0, shared_).compare(shared);
        if (before != 0) {
            return {before < 0 ? 0 : words_.size(), false};
        }
        std::uint64_t const word = word_of(name);
        std::size_t first = lower_bound(word);
        if (first == words_.size() || words_[first] != word) {
            return {first, false};
        }
        std::size_t last = first + 1;
        if (last != words_.size() && words_[last] == word) {
            last = static_cast<std::size_t>(
                std::upper_bound(words_.begin() + static_cast<std::ptrdiff_t>(last), words_.end(),
                                 word)
                - words_.begin());
        }
        while (first != last) {
            std::size_t const middle = first + (last - first) / 2;
            int const order = sorted[middle].get()->name_view().compare(name);
            if (order == 0) {
                return {middle, true};
            }
            (order < 0 ? first : last) = order < 0 ? middle + 1 : middle;
        }
        return {first, false};
    }

    /// Inserts an item that is not there yet, into the vector as well.
    /// \throws std::bad_alloc  with nothing changed.
    void insert(items & sorted, auto_ptr<Item> item)
    {
        std::string_view const name = item->name_view();
        std::size_t shared = name.size();
        if (!sorted.empty()) {
            std::string_view const other = sorted.front().get()->name_view();
            std::size_t const most = std::min({shared_, name.size(), other.size()});
            shared = 0;
            while (shared != most && name[shared] == other[shared]) {
                ++shared;
            }
        }
        auto const position = static_cast<std::ptrdiff_t>(find(sorted, name).position);
        words_.insert(words_.begin() + position, 0);
        try {
            sorted.insert(sorted.begin() + position, item);
        } catch (...) {
            words_.erase(words_.begin() + position);
            throw;
        }
        if (shared != shared_) {
            shared_ = shared;
            std::transform(sorted.begin(), sorted.end(), words_.begin(),
                           [&](auto const & each) { return word_of(each.get()->name_view()); });
        } else {
            words_[static_cast<std::size_t>(position)] = word_of(name);
        }
    }

private:
    /// The eight bytes behind what all names share, in an order that compares like bytes.
    std::uint64_t word_of(std::string_view name) const noexcept
    {
        std::size_t const count = std::min<std::size_t>(name.size() - shared_, 8);
        std::uint64_t word = 0;
        if (count == 8) {
            std::memcpy(&word, name.data() + shared_, 8);
        } else {
            std::memcpy(&word, name.data() + shared_, count);
        }
        return std::endian::native == std::endian::little ? __builtin_bswap64(word) : word;
    }

    std::size_t lower_bound(std::uint64_t word) const noexcept
    {
        // Without a branch that the processor would have to guess.
        std::uint64_t const * first = words_.data();
        for (std::size_t count = words_.size(); count > 1;) {
            std::size_t const half = count / 2;
            first += first[half - 1] < word ? half : 0;
            count -= half;
        }
        return static_cast<std::size_t>(first - words_.data()) + (*first < word ? 1 : 0);
    }

    std::vector<std::uint64_t> words_;
    std::size_t shared_ = 0; // bytes that all names begin with
};

} // namespace zel
