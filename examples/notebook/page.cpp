// SPDX-License-Identifier: MIT
#include "page.h"

#include <algorithm>
#include <list>

namespace notebook {

[[noreturn]] void fail(char const * text, zel::path const & file)
{
    zel::string reason = zel::get_last_error();
    reason.trim_right();
    throw zel::exception(zel::string(text) + " " + zel::to_native(file) + ": " + reason);
}

zel::buffer read_whole(zel::path const & file)
{
    unsigned int const size = file.file_size();
    if (size == 0xFFFFFFFF) {
        fail("cannot read", file);
    }
    zel::file in(file, zel::file::mode_read, zel::file::kind_binary);
    zel::buffer bytes(size, 0);
    bytes.resize(in.read(bytes.data(), size));
    return bytes;
}

std::int32_t checksum(zel::buffer const & bytes)
{
    return zel::Crc32::stringCrc32(bytes.data(), static_cast<int>(bytes.size()));
}

std::vector<zel::path> pages_of(zel::path const & folder)
{
    std::list<zel::auto_ptr<zel::path>> entries;
    zel::path(folder).get_entries(entries, "*.txt");
    std::vector<zel::path> pages;
    for (auto const & entry : entries) {
        if (!entry->is_directory()) {
            pages.push_back(*entry);
        }
    }
    std::sort(pages.begin(), pages.end());
    return pages;
}

zel::string name_of(zel::path const & place) { return place.find_filename(); }

namespace {

zel::string text_of(zel::buffer const & bytes)
{
    return zel::string(reinterpret_cast<char const *>(bytes.data()), bytes.size());
}

zel::path beside(zel::path const & file, char const * extension)
{
    zel::path other = file;
    if (!other.add_extension(extension)) {
        throw zel::exception(zel::to_native(file) + ": the name is too long");
    }
    return other;
}

} // namespace

page::page(zel::path const & file)
    : file_obj(file)
    , draft_(beside(file, ".draft"))
{
    if (file.file_exists()) {
        zel::buffer const saved = read_whole(file);
        saved_sum_ = checksum(saved);
        text_ = text_of(saved);
    }
    if (draft_.file_exists()) {
        // One that equals the page was saved, and should have gone.
        if (zel::path::compare_files(draft_, file)) {
            draft_.remove();
        } else {
            text_ = text_of(read_whole(draft_));
            changed_ = true;
        }
    }
}

void page::add(zel::string const & line)
{
    if (!changed_ && file_path.file_exists() && !file_path.copy(draft_)) {
        fail("cannot write", draft_);
    }
    // The end of a line that a kill has cut short.
    bool const open_end = !text_.empty() && text_.back() != '\n';
    zel::string const added = (open_end ? "\n" : "") + line + "\n";
    zel::file out(draft_, zel::file::mode_append, zel::file::kind_binary);
    out.write_string(added);
    out.close(); // raises when the disk is full
    text_ += added;
    changed_ = true;
}

void page::save()
{
    if (!changed_) {
        return;
    }
    if (file_path.file_exists()) {
        zel::path const old = beside(file_path, ".bak");
        if (!file_path.copy(old)) {
            fail("cannot write", old);
        }
    }
    if (!draft_.copy(file_path)) { // replaces it in one step
        fail("cannot write", file_path);
    }
    saved_sum_ = checksum(read_whole(file_path));
    draft_.remove();
    changed_ = false;
}

} // namespace notebook
