// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace zel::platform {

/// A hash table of names with open addressing. It ignores the case of ASCII letters.
class folded_names {
public:
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    /// Adds a name unless it is present.
    /// \param name   must live as long as this object.
    void add(std::string_view name, std::size_t value);
    /// \returns the value that was added with the name, or `none`.
    std::size_t find(std::string_view name) const noexcept;
    /// Reserves room for this many names.
    void reserve(std::size_t count);
    void clear() noexcept;

private:
    struct added_name {
        std::string_view name;
        std::size_t value;
    };
    // Small, so that most of them stay in the processor's caches.
    struct slot {
        std::uint32_t hash = 0;
        std::uint32_t number = free; // of the name
    };
    static constexpr std::uint32_t free = 0xFFFFFFFF;

    std::size_t place_of(std::string_view name, std::uint32_t hash) const noexcept;

    std::vector<added_name> names_;
    std::vector<slot> slots_; // a power of two, at most half of them taken
};

} // namespace zel::platform
