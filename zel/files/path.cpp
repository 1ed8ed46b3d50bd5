// SPDX-License-Identifier: MIT
#include "zel/files/path.h"

#include "zel/base/ascii.h"
#include "zel/files/path_argument.h"
#include "zel/platform/files/special_folders.h"
#include "zel/platform/host/locale.h"
#include "zel/platform/paths/canonical_path.h"
#include "zel/platform/paths/max_path.h"
#include "zel/platform/paths/path_compare.h"
#include "zel/platform/paths/path_match.h"
#include "zel/platform/paths/path_parts.h"
#include "zel/platform/paths/path_text.h"
#include "zel/platform/paths/relative_path.h"
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

void normalize_or_raise(char * result, std::string_view source)
{
    if (!normalize(result, source)) {
        throw std::length_error("zel::path: longer than 259 bytes");
    }
}

/// The characters of a string; raises when one is a NUL.
std::string_view checked(std::string const & source)
{
    if (source.find('\0') != std::string::npos) {
        throw std::invalid_argument("zel::path: a NUL inside");
    }
    return source;
}

/// The platform's numbers for the values of `path::special_folder`, in its order.
constexpr std::uint8_t identifiers[] = {48, 47, 26, 35, 46, 33, 34, 32, 28, 39, 5, 38, 43, 37, 36};
static_assert(std::size(identifiers) == path::windows + 1);

} // namespace

// The array is zeroed once, so that comparisons may read it in blocks up to its end.
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

// Each of these first constructs a complete, empty path; its destructor frees the array if the text
// is refused.
path::path(char const * source)
    : path(no_folder)
{
    normalize_or_raise(text, platform::as_text(source));
}

path::path(string const & source)
    : path(no_folder)
{
    normalize_or_raise(text, checked(source));
}

path::path(std::string const & source)
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
    normalize_or_raise(second, platform::as_text(name));
    if (platform::path_combine(text, text, second) == nullptr) {
        throw std::length_error("zel::path: longer than 259 bytes");
    }
}

path::~path() { delete[] text; }

path & path::operator=(path const & source)
{
    // The text of a path is already normalised. Exceptions are a single backslash and a path that
    // begins with one after combining.
    if (begins_in_current_folder(platform::as_text(source.text))) {
        return *this = source.text;
    }
    std::memmove(text, source.text, source.size() + 1);
    return *this;
}

path & path::operator=(char const * source)
{
    normalize_or_raise(text, platform::as_text(source));
    return *this;
}

path & path::operator=(string const & source)
{
    normalize_or_raise(text, checked(source));
    return *this;
}

path & path::operator=(std::string const & source)
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
    // The comparison reads whole blocks, also behind the text.
    char normalized[max_path] = {};
    return normalize(normalized, platform::as_text(other))
        && platform::path_equal(text, normalized);
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

void path::to_lower() noexcept
{
    std::transform(text, text + size(), text,
                   platform::only_ascii_has_case() ? ascii::lower : platform::lower_in_locale);
}

void path::to_upper() noexcept
{
    std::transform(text, text + size(), text,
                   platform::only_ascii_has_case() ? ascii::upper : platform::upper_in_locale);
}

bool path::add_extension(char const * extension) noexcept
{
    std::string_view const added = platform::as_text(extension);
    std::size_t const end = size();
    if (end + added.size() > platform::longest_path) {
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
    // An append always gives a canonical text, so the flag has nothing left to resolve.
    text_argument const name(more);
    return name.fits() && platform::path_append(text, name.view());
}

bool path::relative_path_to(char const * from, std::int32_t from_attributes, char const * to,
                            std::int32_t to_attributes) noexcept
{
    text_argument const end(to);
    text_argument const start(from);
    return start.fits() && end.fits()
        && platform::path_relative_path_to(text, start.c_str(), from_attributes, end.c_str(),
                                           to_attributes);
}

bool path::common_prefix(char const * first, char const * second) noexcept
{
    text_argument const a(first);
    text_argument const b(second);
    return a.fits() && b.fits() && platform::path_common_prefix(a.c_str(), b.c_str(), text) != 0;
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
    // A name may contain a `;` or begin with a blank, so the plain comparison comes first.
    std::string_view const name = find_filename();
    std::string_view const wanted = platform::as_text(spec);
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
