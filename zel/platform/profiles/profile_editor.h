// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/profiles/folded_names.h"
#include "zel/platform/profiles/private_profile.h"
#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace zel::platform {

/// Whether the entry would be found again under its names and with its value: no line end anywhere, nothing in a name that ends it or makes its line something else, and no blank at a
/// name's ends but spaces.
bool can_be_read_back(private_profile_entry const & entry) noexcept;

/// The text of a private-profile file with entries being written into it.
///
/// Lines that no entry touches are carried over in one piece with their section. All members may
/// raise `std::bad_alloc`.
class profile_editor {
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

public:
    /// \param text        must live as long as this object.
    /// \param size_limit  the bytes that the new text may have; `text` itself may have more.
    explicit profile_editor(std::string_view text, std::size_t size_limit = none);

    enum class outcome {
        written,
        refused, ///< for its text (`can_be_read_back`); nothing has changed
        too_large, ///< the text would grow beyond its limit; nothing has changed
    };

    /// Writes or removes one entry.
    /// \param entry  its texts must live as long as this object.
    outcome apply(private_profile_entry const & entry);

    /// The whole new text.
    std::string text() const;

private:
    /// The index of the names of a section's entries or of the file's sections. A single search does
    /// not pay for one, so that the second one builds it.
    struct index {
        folded_names names;
        std::size_t searches = 0;

        bool due() noexcept { return searches++ == 1; }
        bool built() const noexcept { return searches > 1; }
        void drop() noexcept
        {
            names.clear();
            searches = 0;
        }
    };

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
        index entries{};
    };

    section * find_section(std::string_view name);
    section & add_section(std::string_view name, std::string_view end);
    static void open(section & part);
    bool set_value(line & entry, std::string_view value) noexcept;
    bool add_entry(section * part, std::string_view section_name, line added);
    std::size_t find_line(section & part, std::string_view name);
    static void insert(section & part, line added);
    void remove(section & part, std::size_t position);
    std::string_view line_end_of(section const & part, std::size_t position) const noexcept;
    bool resize(std::size_t removed, std::size_t added) noexcept;

    std::size_t const size_limit_;
    std::size_t size_; // of the new text
    std::vector<section> sections_;
    index section_names_;
    std::size_t last_found_ = none;
    std::deque<std::string> made_; // texts of blocks and heads, which lines refer to
};

} // namespace zel::platform
