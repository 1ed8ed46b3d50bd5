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

/// True if the written entry could be read back with these names and this value. This is where a
/// write is refused for its text: no text may contain a line end; a name may not contain a byte
/// that ends it or that gives its line another meaning, and may have no blanks but spaces at its
/// ends.
bool can_be_read_back(private_profile_entry const & entry) noexcept;

/// Edits the text of a private-profile file: writes entries into it.
///
/// Sections that no entry changes are copied in one piece. All members may raise `std::bad_alloc`.
class profile_editor {
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

public:
    /// \param text        must live as long as this object.
    /// \param size_limit  the maximum size of the new text in bytes; `text` itself may be longer.
    explicit profile_editor(std::string_view text, std::size_t size_limit = none);

    enum class outcome {
        written,
        refused, ///< its text failed `can_be_read_back`; nothing has changed
        too_large, ///< the text would exceed its limit; nothing has changed
    };

    /// Writes or removes one entry.
    /// \param entry  its texts must live as long as this object.
    outcome apply(private_profile_entry const & entry);

    /// The whole new text.
    std::string text() const;

private:
    /// An index of the names of a section's entries or of the file's sections. Building it costs
    /// more than a single search, so the second search builds it.
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
        std::string_view lead; // up to the equals sign; the whole line if it is no entry
        std::string_view equals; // "=" in a new entry, whose `lead` is the bare name
        std::string_view blanks; // before the value; none if a new value begins with blanks
        std::string_view value; // with its quotes and all that follows
        std::string_view end; // "\r\n", "\n", "\r", or nothing at the end of the file
        std::string_view name;
        bool is_entry = false;
        std::size_t previous = none;
        std::size_t next = none;
    };

    /// The lines from one head to the next. The part before the first head is a section too.
    struct section {
        std::string_view name;
        std::string_view text; // used until the section has been parsed into lines
        std::vector<line> lines{}; // in the order of creation; `next` gives the order in the file
        std::size_t last = none;
        std::size_t last_entry = 0; // the head when there is no entry
        std::size_t last_found = 0; // the head at first; a valid position while `ascending`
        bool ascending = true; // the entries' names, without regard to case, so none occurs twice
        index entries{};
    };

    section * find_section(std::string_view name);
    section & add_section(std::string_view name, std::string_view end);
    static void open(section & part);
    bool set_value(line & entry, std::string_view value) noexcept;
    bool add_entry(section * part, std::string_view section_name, line added);
    std::size_t find_line(section & part, std::string_view name);
    static bool is_behind_last_entry(section const & part, std::string_view name) noexcept;
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
