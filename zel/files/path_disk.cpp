// SPDX-License-Identifier: MIT
// The members of `path` that access the disk.
#include "zel/files/path.h"

#include "zel/core/auto_buffer.h"
#include "zel/files/file.h"
#include "zel/files/path_argument.h"
#include "zel/platform/files/copy_and_move.h"
#include "zel/platform/files/directories.h"
#include "zel/platform/files/file_attributes.h"
#include "zel/platform/files/removal.h"
#include "zel/platform/paths/canonical_path.h"
#include "zel/platform/paths/max_path.h"
#include "zel/platform/paths/path_match.h"
#include "zel/platform/paths/path_parts.h"
#include "zel/platform/paths/path_text.h"
#include <cstdint>
#include <cstring>
#include <string_view>

namespace zel {
namespace {

constexpr std::uint32_t no_size = 0xFFFFFFFF;

/// The context of `take_entry`, which the listing of a folder calls.
struct search {
    std::list<auto_ptr<path>> & entries;
    std::string_view pattern;
    char text[platform::max_path]; // of the folder with its backslash, then of each entry
    std::size_t folder_size;
};

/// Adds an entry that matches the pattern and fits a path.
void take_entry(void * context, std::string_view name)
{
    search & found = *static_cast<search *>(context);
    if (!platform::listing_matches(name, found.pattern)
        || name.find('\\') != std::string_view::npos) {
        return;
    }
    std::size_t size = found.folder_size;
    if (size == 0 && platform::path_get_drive_number(name.data()) >= 0) {
        size = 2; // without a folder the name would be a drive
        std::memcpy(found.text, ".\\", size);
    }
    if (size + name.size() <= platform::longest_path) {
        found.text[size + name.copy(found.text + size, name.size())] = '\0';
        found.entries.push_back(auto_ptr<path>(new path(found.text)));
    }
}

/// Puts the drive before a single leading backslash. The entries become paths, in which that
/// backslash would mean the current folder.
bool copy_with_drive(char * result, char const * text) noexcept
{
    std::string_view const front = *text == '\\' && text[1] != '\\' ? "C:" : "";
    std::string_view const rest = text;
    if (front.size() + rest.size() > platform::longest_path) {
        return false;
    }
    result[front.size() + rest.copy(result + front.copy(result, front.size()), rest.size())] = '\0';
    return true;
}

/// Creates all missing folders of the path.
bool create_folders(char const * text) noexcept
{
    // The empty text is the current folder.
    if (*text == '\0' || platform::path_is_directory(text)) {
        return true;
    }
    char folder[platform::max_path];
    char const * const behind_root = platform::path_skip_root(text);
    for (char const * end = behind_root == nullptr ? text : behind_root; *end != '\0';) {
        while (*end == '\\') {
            ++end;
        }
        while (*end != '\0' && *end != '\\') {
            ++end;
        }
        auto const size = static_cast<std::size_t>(end - text);
        std::memcpy(folder, text, size);
        folder[size] = '\0';
        // Another process may create it between the first two calls.
        if (!platform::path_is_directory(folder) && !platform::create_directory(folder)
            && !platform::path_is_directory(folder)) {
            return false;
        }
    }
    return platform::path_is_directory(text);
}

bool create_folder_of(path const & target) noexcept
{
    char folder[platform::max_path];
    std::strcpy(folder, target.c_str());
    platform::path_remove_file_spec(folder);
    return create_folders(folder);
}

} // namespace

bool path::file_exists() const noexcept { return platform::path_file_exists(text); }

bool path::is_directory() const noexcept { return platform::path_is_directory(text); }

std::int32_t path::getAttributes() const noexcept { return platform::get_file_attributes(text); }

void path::setAttributes(std::int32_t attributes) noexcept
{
    platform::set_file_attributes(text, attributes);
}

bool path::set_current() noexcept { return platform::set_current_directory(text); }

bool path::make_system_folder() noexcept { return platform::path_make_system_folder(text); }

bool path::unmake_system_folder() noexcept { return platform::path_unmake_system_folder(text); }

unsigned int path::file_size() const noexcept
{
    std::uint64_t size = 0;
    return platform::get_file_size(text, size) && size < no_size ? static_cast<unsigned int>(size)
                                                                 : no_size;
}

bool path::create() { return create_folders(text); }

bool path::rename(path const & target, bool)
{
    if (!create_folder_of(target) || !platform::move_file(text, target.text)) {
        return false;
    }
    std::strcpy(text, target.text);
    return true;
}

bool path::copy(path const & target)
{
    return create_folder_of(target) && platform::copy_file(text, target.text);
}

path path::get_temp_filename(path const & folder)
{
    char place[max_path];
    char result[max_path] = {};
    if (copy_with_drive(place, folder.text)) {
        platform::get_temp_file_name(place, "temp", result);
    }
    return path(result);
}

bool path::compare_files(path const & first, path const & second)
{
    constexpr std::uint32_t block_size = 128 * 1024;
    std::uint64_t first_size = 0;
    std::uint64_t second_size = 0;
    if (!platform::get_file_size(second.text, second_size)
        || !platform::get_file_size(first.text, first_size) || first_size != second_size) {
        return false;
    }
    try {
        file a(first, file::mode_read, file::kind_binary);
        file b(second, file::mode_read, file::kind_binary);
        auto_buffer<char> const first_block(block_size);
        auto_buffer<char> const second_block(block_size);
        for (;;) {
            std::uint32_t const count = a.read(first_block.get(), block_size);
            if (b.read(second_block.get(), block_size) != count
                || std::memcmp(first_block.get(), second_block.get(), count) != 0) {
                return false;
            }
            if (count < block_size) {
                return a.eof() && b.eof(); // otherwise a read failed
            }
        }
    } catch (file::exception const &) {
        return false;
    }
}

void path::get_entries(std::list<auto_ptr<path>> & entries, char const * spec, bool clear)
{
    if (clear) {
        entries.clear();
    }
    char pattern[max_path];
    text_argument const name(spec);
    // A pattern for names need not fit behind the folder's text: only the entries have to fit.
    bool const for_names = name.fits() && platform::path_is_name(name.c_str());
    if (!name.fits() || !copy_with_drive(pattern, text)
        || platform::path_add_backslash(pattern) == nullptr
        || !platform::path_append(pattern, for_names ? "*" : name.view())) {
        return;
    }
    // If `spec` has several components, the folder is everything before the last one.
    std::string_view const whole = pattern;
    std::size_t const folder_size = whole.rfind('\\') + 1;
    if (folder_size == 0 && platform::path_get_drive_number(pattern) >= 0) {
        return;
    }
    search found{entries, for_names ? name.c_str() : whole.substr(folder_size), {}, folder_size};
    found.text[whole.copy(found.text, folder_size)] = '\0';
    platform::list_directory(folder_size == 0 ? "." : found.text, take_entry, &found);
}

bool path::empty_folder() { return is_directory() && platform::empty_directory(text, true); }

bool path::remove()
{
    if (!platform::path_is_unlinked_directory(text)) {
        return platform::delete_file(text);
    }
    // Try the folder itself first: an empty one can be removed without the right to read it.
    return platform::remove_directory(text)
        || (platform::empty_directory(text, false) && platform::remove_directory(text));
}

} // namespace zel
