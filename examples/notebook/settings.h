// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <list>
#include <utility>
#include <zel/zel.h>

namespace notebook {

using store = zel::auto_ptr<zel::iprofile>;

/// The window's position on the screen, in cells of the terminal.
class window_place {
public:
    explicit window_place(store settings);

    /// Empty until the user has chosen a place.
    zel::rect const & get() const { return frame_; }
    void set(zel::rect const & frame);

private:
    store settings_;
    zel::rect frame_;
};

/// The pages that were used last, the newest first, and the checksum that each had then.
class recent_pages {
public:
    static constexpr std::int32_t limit = 5;

    explicit recent_pages(store settings);

    void add(zel::path const & page, std::int32_t sum);
    /// \returns true if the page is one of them.
    bool find_sum(zel::path const & page, std::int32_t & sum) const;
    std::list<zel::path> list() const;

private:
    // The number that the settings have behind the names of the entries, and the path.
    using entries = std::list<std::pair<std::int32_t, zel::string>>;

    entries::const_iterator find(zel::path const & page) const;

    store settings_;
    entries pages_;
};

/// The settings of the program, in one file under the user's configuration folder: a cache in front
/// of the file, and a part of the cache for each component.
class settings {
public:
    /// \throws zel::exception  there is no such folder.
    settings();

    zel::path const & folder() const { return folder_; }
    window_place & window() { return window_; }
    recent_pages & recent() { return recent_; }

    /// Writes what has changed.
    /// \throws zel::exception  the file cannot be written.
    void save();

    /// A second process stores here the page that the first one should open. Both bypass the cache
    /// and use the file.
    void ask_for(zel::path const & page);
    /// The page that was requested last, which is then removed; empty when there is none.
    zel::path take_request();

private:
    zel::path folder_;
    zel::auto_ptr<zel::ini_file> file_;
    zel::auto_ptr<zel::cached_profile> cache_;
    window_place window_;
    recent_pages recent_;
};

} // namespace notebook
