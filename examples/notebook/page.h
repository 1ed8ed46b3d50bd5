// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <vector>
#include <zel/zel.h>

namespace notebook {

/// A page: lines of text in a file.
///
/// A line that is added is written at once to a draft, a file beside the page that contains the
/// whole text; saving replaces the page by the draft. So a program that is killed loses no line,
/// and the page is complete at every moment.
class page : public zel::file_obj {
public:
    /// Finds the text: in a draft that was left behind, else in the page, which need not exist yet.
    explicit page(zel::path const & file);

    zel::string const & text() const { return text_; }
    /// True if there is a draft.
    bool is_changed() const { return changed_; }
    /// The checksum of the text on the disk, without the draft.
    std::int32_t saved_sum() const { return saved_sum_; }

    /// \throws zel::exception  the draft cannot be written.
    void add(zel::string const & line);
    /// Replaces the page by the draft, and keeps the old page as NAME.bak.
    /// \throws zel::exception  one of them cannot be written; the draft stays.
    void save();

private:
    zel::path draft_;
    zel::string text_;
    bool changed_ = false;
    std::int32_t saved_sum_ = 0;
};

/// The content of a file.
/// \throws zel::exception  it cannot be read.
zel::buffer read_whole(zel::path const & file);

/// The CRC-32 of the bytes.
std::int32_t checksum(zel::buffer const & bytes);

/// The pages in a folder, in the order of their names.
std::vector<zel::path> pages_of(zel::path const & folder);

/// The last component.
zel::string name_of(zel::path const & place);

/// Throws the text, a file's name and the reason of the last failure.
[[noreturn]] void fail(char const * text, zel::path const & file);

} // namespace notebook
