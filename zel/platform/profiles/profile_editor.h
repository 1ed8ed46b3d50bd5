// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/profiles/private_profile.h"
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zel::platform {

/// Whether the entry would be found again under its names and with its value: no line end or NUL
/// anywhere, nothing in a name that ends it or makes its line something else, and no blank at a
/// name's ends but spaces.
bool can_be_read_back(private_profile_entry const & entry) noexcept;

/// The text of a private-profile file with entries being written into it.
///
/// Lines that no entry touches are carried over in one piece with their section. All members may
/// raise `std::bad_alloc`.
class profile_editor {
public:
    /// \param text  must live as long as this object.
    explicit profile_editor(std::string_view text);

    /// Writes or removes one entry.
    /// \param entry  its texts must live as long as this object.
    /// \returns false when it was refused and changed nothing.
    bool apply(private_profile_entry const & entry);

    /// The whole new text.
    std::string text() const;

private:
    struct folded_hash {
        std::size_t operator()(std::string_view name) const noexcept;
    };
    struct folded_equal {
        bool operator()(std::string_view a, std::string_view b) const noexcept;
    };

    /// Finds names by their first occurrence. A single search in a file does not pay for an index.
    class name_index {
    public:
        bool due() noexcept { return searches_++ == 1; }
        bool built() const noexcept { return searches_ > 1; }
        void add(std::string_view name, std::size_t position)
        {
            places_.try_emplace(name, position);
        }
        std::size_t find(std::string_view name) const;
        void drop() noexcept;

    private:
        std::unordered_map<std::string_view, std::size_t, folded_hash, folded_equal> places_;
        std::size_t searches_ = 0;
    };

    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    struct line {
        std::string_view lead; // up to the equals sign; all of a line that is no entry
        std::string_view equals; // "=" in a new entry, whose `lead` is the bare name
        std::string_view blanks; // in front of the value; none when it brings its own
        std::string_view value; // with its quotes and what is behind it
        std::string_view end; // "\r\n", "\n", "\r", or nothing at the end of the file
        std::string_view name;
        bool is_entry = false;
        std::size_t previous = none;
        std::size_t next = none;
    };

    /// The lines from one head to the next; the part in front of the first head is one too.
    struct section {
        std::string_view name;
        std::string_view text; // as long as there are no lines
        std::vector<line> lines{}; // in the order of their making; `next` has that of the file
        std::size_t last = none;
        std::size_t last_entry = 0; // the head when there is no entry
        name_index entries{};
    };

    section * find_section(std::string_view name);
    section & add_section(std::string_view name);
    static void open(section & part);
    static void set_value(line & entry, std::string_view value) noexcept;
    std::size_t find_line(section & part, std::string_view name);
    void insert(section & part, std::size_t behind, line added);
    void remove(section & part, std::size_t position);
    std::string_view close_line(section & part, std::size_t position);
    std::string_view close_file();

    std::string_view text_;
    std::vector<section> sections_;
    name_index section_names_;
    std::size_t last_found_ = none;
    std::deque<std::string> made_; // texts of blocks and heads, which lines refer to
    std::size_t added_ = 0; // bytes, about
};

} // namespace zel::platform
