// SPDX-License-Identifier: MIT
#include "zel/files/path.h"

#include "zel/base/ascii.h"
#include "zel/core/auto_buffer.h"
#include "zel/files/file.h"
#include "zel/platform/files/file_system.h"
#include "zel/platform/files/folders.h"
#include "zel/platform/paths/shell_path.h"
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <istream>
#include <iterator>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace zel {
namespace {

constexpr std::size_t longest = platform::max_path - 1;

constexpr bool is_separator(char c) noexcept { return c == '\\' || c == '/'; }

/// Writes the normalised text into an array of `max_path` bytes, which may be the source.
/// \returns false when it would not fit, and then nothing is written.
bool normalize(char * result, std::string_view source) noexcept
{
    bool const dot = !source.empty() && is_separator(source[0])
        && !(source.size() > 1 && is_separator(source[1]));
    if (source.size() + (dot ? 1 : 0) > longest) {
        return false;
    }
    char * const start = result + (dot ? 1 : 0);
    std::memmove(start, source.data(), source.size());
    start[source.size()] = '\0';
    if (dot) {
        *result = '.';
    }
    // Most texts have none, and looking for one is much cheaper than replacing.
    if (std::memchr(start, '/', source.size()) != nullptr) {
        std::replace(start, start + source.size(), '/', '\\');
    }
    return true;
}

std::string_view view(char const * text) noexcept { return text == nullptr ? "" : text; }

void normalize_or_raise(char * result, std::string_view source)
{
    if (!normalize(result, source)) {
        throw std::length_error("zel::path: longer than 259 bytes");
    }
}

/// The characters of a string, which have to be a text.
std::string_view checked(string const & source)
{
    if (source.find('\0') != string::npos) {
        throw std::invalid_argument("zel::path: a NUL inside");
    }
    return source;
}

/// A normalised argument of an operation that can say that it failed.
class argument {
public:
    explicit argument(char const * source) noexcept
        : fits_(normalize(text_, view(source)))
    {
    }

    bool fits() const noexcept { return fits_; }
    char const * c_str() const noexcept { return text_; }

private:
    char text_[platform::max_path]; // what is behind the text has no value
    bool fits_;
};

/// The platform's numbers of `path::special_folder`, in its order.
constexpr std::uint8_t identifiers[] = {48, 47, 26, 35, 46, 33, 34, 32, 28, 39, 5, 38, 43, 37, 36};
static_assert(std::size(identifiers) == path::windows + 1);

constexpr std::uint32_t no_size = 0xFFFFFFFF;

/// What `get_entries` hands to the listing of a folder.
struct search {
    std::list<auto_ptr<path>> & entries;
    std::string_view pattern;
    char text[platform::max_path]; // of the folder with its backslash, then of each entry
    std::size_t folder_size;
};

/// Adds an entry when the pattern matches and a path can name it.
void take_entry(void * context, std::string_view name)
{
    search & found = *static_cast<search *>(context);
    if (!platform::name_matches(name, found.pattern) || name.find('\\') != std::string_view::npos) {
        return;
    }
    std::size_t size = found.folder_size;
    if (size == 0 && platform::path_get_drive_number(name.data()) >= 0) {
        size = 2; // alone the name would be a drive
        std::memcpy(found.text, ".\\", size);
    }
    if (size + name.size() <= longest) {
        found.text[size + name.copy(found.text + size, name.size())] = '\0';
        found.entries.push_back(auto_ptr<path>(new path(found.text)));
    }
}

/// Puts the drive in front of a lone leading backslash. What is found there becomes a path, which
/// would take the backslash for the current folder.
bool copy_with_drive(char * result, char const * text) noexcept
{
    std::string_view const front = *text == '\\' && text[1] != '\\' ? "C:" : "";
    std::string_view const rest = text;
    if (front.size() + rest.size() > longest) {
        return false;
    }
    result[front.size() + rest.copy(result + front.copy(result, front.size()), rest.size())] = '\0';
    return true;
}

/// Creates what is missing of the chain of folders.
bool create_folders(char const * text) noexcept
{
    // No folder at all is the current one.
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
        // Another process may make it between the first two calls.
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

// The array is filled with zeros once, so that comparing may read it in blocks to its end.
path::path(standard folder)
    : text(new char[max_path]())
{
    if (folder == temporary_folder) {
        platform::get_temp_path(text);
    } else if (folder == current_folder) {
        platform::get_current_folder(text);
    }
}

path::path(special_folder folder)
    : path(no_folder)
{
    std::uint32_t const value = folder;
    platform::get_special_folder(value <= windows ? identifiers[value] : value, text);
}

// Each of these begins as a complete, empty path, whose destructor frees the array when the text
// is refused.
path::path(char const * source)
    : path(no_folder)
{
    normalize_or_raise(text, view(source));
}

path::path(string const & source)
    : path(no_folder)
{
    normalize_or_raise(text, checked(source));
}

path::path(path const & source)
    : path(source.text)
{
}

path::path(char const * folder, char const * name)
    : path(folder)
{
    char second[max_path];
    normalize_or_raise(second, view(name));
    if (platform::path_combine(text, text, second) == nullptr) {
        throw std::length_error("zel::path: longer than 259 bytes");
    }
}

path::~path() { delete[] text; }

path & path::operator=(path const & source) { return *this = source.text; }

path & path::operator=(char const * source)
{
    normalize_or_raise(text, view(source));
    return *this;
}

path & path::operator=(string const & source)
{
    normalize_or_raise(text, checked(source));
    return *this;
}

bool path::operator==(path const & other) const noexcept
{
    return platform::path_equal(text, other.text);
}

bool path::operator==(char const * other) const noexcept
{
    // Comparing reads in blocks and so behind the text.
    char normalized[max_path] = {};
    return normalize(normalized, view(other)) && platform::path_equal(text, normalized);
}

std::weak_ordering path::operator<=>(path const & other) const noexcept
{
    return platform::path_compare(text, other.text) <=> 0;
}

std::size_t hash_value(path const & source) noexcept
{
    char folded[platform::max_path];
    std::string_view const text = source.c_str();
    std::transform(text.begin(), text.end(), folded, ascii::lower);
    return std::hash<std::string_view>()({folded, text.size()});
}

unsigned int path::size() const noexcept { return static_cast<unsigned int>(std::strlen(text)); }

void path::to_lower() noexcept { std::transform(text, text + size(), text, ascii::lower); }

void path::to_upper() noexcept { std::transform(text, text + size(), text, ascii::upper); }

bool path::add_extension(char const * extension) noexcept
{
    std::string_view const added = view(extension);
    std::size_t const end = size();
    if (end + added.size() > longest) {
        return false;
    }
    std::memmove(text + end, added.data(), added.size());
    text[end + added.size()] = '\0';
    return true;
}

void path::strip_final_slash() noexcept
{
    unsigned int const length = size();
    if (length > 0 && text[length - 1] == '\\') {
        text[length - 1] = '\0';
    }
}

bool path::canonicalize() noexcept { return platform::path_canonicalize(text, text); }

bool path::append(char const * more, bool) noexcept
{
    // What an append gives is canonical at once, so that there is nothing left to resolve.
    argument const name(more);
    return name.fits() && platform::path_append(text, name.c_str());
}

bool path::relative_path_to(char const * from, std::int32_t from_attributes, char const * to,
                            std::int32_t to_attributes) noexcept
{
    argument const end(to);
    argument const start(from);
    return start.fits() && end.fits()
        && platform::path_relative_path_to(text, start.c_str(), from_attributes, end.c_str(),
                                           to_attributes);
}

bool path::common_prefix(char const * first, char const * second) noexcept
{
    argument const a(first);
    argument const b(second);
    if (!a.fits() || !b.fits()
        || platform::path_common_prefix(a.c_str(), b.c_str(), nullptr) == 0) {
        return false;
    }
    platform::path_common_prefix(a.c_str(), b.c_str(), text);
    return true;
}

path path::find_first_component() const
{
    char const * const next = platform::path_find_next_component(text);
    path component;
    normalize_or_raise(component.text,
                       next == nullptr
                           ? std::string_view(text)
                           : std::string_view(text, static_cast<std::size_t>(next - text)));
    return component;
}

path path::find_next_component() const { return path(platform::path_find_next_component(text)); }

bool path::match_spec(char const * spec) const noexcept
{
    // A name may hold a `;` or begin with a blank, so the plain comparison comes first.
    std::string_view const name = find_filename();
    std::string_view const wanted = view(spec);
    return ascii::equal_without_case(name, wanted) || platform::path_match_spec(name, wanted);
}

char const * path::add_back_slash() noexcept { return platform::path_add_backslash(text); }

char const * path::remove_back_slash() noexcept { return platform::path_remove_backslash(text); }

bool path::rename_extension(char const * extension) noexcept
{
    return platform::path_rename_extension(text, extension);
}

char const * path::find_extension() const noexcept { return platform::path_find_extension(text); }

void path::remove_extension() noexcept { platform::path_remove_extension(text); }

void path::quote_spaces() noexcept { platform::path_quote_spaces(text); }

void path::unquote_spaces() noexcept { platform::path_unquote_spaces(text); }

char const * path::get_arguments() const noexcept { return platform::path_get_args(text); }

void path::remove_arguments() noexcept { platform::path_remove_args(text); }

bool path::remove_file_spec() noexcept { return platform::path_remove_file_spec(text); }

char const * path::find_filename() const noexcept { return platform::path_find_file_name(text); }

char const * path::skip_root() const noexcept { return platform::path_skip_root(text); }

char const * path::build_root(std::int32_t drive) noexcept
{
    return platform::path_build_root(text, drive);
}

std::int32_t path::get_drive_number() const noexcept
{
    return platform::path_get_drive_number(text);
}

bool path::strip_to_root() noexcept { return platform::path_strip_to_root(text); }

void path::strip_path() noexcept { platform::path_strip_path(text); }

bool path::make_pretty() noexcept { return platform::path_make_pretty(text); }

void path::remove_blanks() noexcept { platform::path_remove_blanks(text); }

bool path::is_file_spec() const noexcept { return platform::path_is_file_spec(text); }

bool path::is_relative() const noexcept { return platform::path_is_relative(text); }

bool path::is_root() const noexcept { return platform::path_is_root(text); }

bool path::is_url() const noexcept { return platform::path_is_url(text); }

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
                return a.eof() && b.eof(); // else a read failed
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
    argument const name(spec);
    if (!name.fits() || !copy_with_drive(pattern, text)
        || platform::path_add_backslash(pattern) == nullptr
        || !platform::path_append(pattern, name.c_str())) {
        return;
    }
    // The folder is what stands in front of the last component, should `spec` have several.
    std::string_view const whole = pattern;
    std::size_t const folder_size = whole.rfind('\\') + 1;
    if (folder_size == 0 && platform::path_get_drive_number(pattern) >= 0) {
        return;
    }
    search found{entries, whole.substr(folder_size), {}, folder_size};
    found.text[whole.copy(found.text, folder_size)] = '\0';
    platform::list_directory(folder_size == 0 ? "." : found.text, take_entry, &found);
}

bool path::empty_folder() { return is_directory() && platform::empty_directory(text, true); }

bool path::remove()
{
    if (!platform::path_is_unlinked_directory(text)) {
        return platform::delete_file(text);
    }
    // An empty folder goes at once, also without the right to look inside.
    return platform::remove_directory(text)
        || (platform::empty_directory(text, false) && platform::remove_directory(text));
}

std::ostream & operator<<(std::ostream & out, path const & source) { return out << source.c_str(); }

std::istream & operator>>(std::istream & in, path & target)
{
    std::string line;
    if (std::getline(in >> std::ws, line)) {
        if (line.ends_with('\r')) {
            line.pop_back();
        }
        try {
            target = string(line);
        } catch (std::logic_error const &) {
            in.setstate(std::ios::failbit);
        }
    }
    return in;
}

} // namespace zel
