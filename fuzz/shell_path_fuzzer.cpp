// SPDX-License-Identifier: MIT
// Every shell path function on two texts, each in a block of exactly its size and each result in
// an array of exactly a path's, so that the sanitizer sees one byte too many; and what holds for
// every text.
#include "zel/platform/paths/canonical_path.h"
#include "zel/platform/paths/host_path.h"
#include "zel/platform/paths/max_path.h"
#include "zel/platform/paths/path_compare.h"
#include "zel/platform/paths/path_match.h"
#include "zel/platform/paths/path_parts.h"
#include "zel/platform/paths/relative_path.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace {

using namespace zel::platform;

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

/// A text without a byte behind its terminator.
class exact_text {
public:
    explicit exact_text(std::string const & text)
        : text_(new char[text.size() + 1])
    {
        std::memcpy(text_.get(), text.c_str(), text.size() + 1);
    }
    char const * get() const { return text_.get(); }

private:
    std::unique_ptr<char[]> text_;
};

/// A path's array on the heap, with a text that fits.
class array {
public:
    explicit array(std::string_view text)
        : text_(new char[max_path]())
    {
        text.copy(text_.get(), max_path - 1);
    }
    char * get() const { return text_.get(); }
    std::string text() const { return text_.get(); }

private:
    std::unique_ptr<char[]> text_;
};

bool points_into(char const * part, char const * text)
{
    return part >= text && part <= text + std::strlen(text);
}

void read_only(char const * text, char const * other)
{
    for (auto const find : {path_find_extension, path_get_args, path_find_file_name}) {
        require(points_into(find(text), text));
    }
    char const * const next = path_find_next_component(text);
    require(next == nullptr ? *text == '\0' : points_into(next, text) && next > text);
    char const * const rest = path_skip_root(text);
    require(rest == nullptr ? path_is_relative(text)
                            : points_into(rest, text) && !path_is_relative(text));
    std::int32_t const drive = path_get_drive_number(text);
    require(drive >= -1 && drive < 26 && (drive < 0 || !path_is_relative(text)));
    require(!path_is_root(text) || !path_is_relative(text));
    require(!path_is_url(text) || !path_is_file_spec(text));
    require(path_match_spec(text, "*") && path_match_spec(text, "*.*"));
    path_match_spec(text, other);
    listing_matches(text, other);
}

template <typename Function> std::string change(std::string const & text, Function && function)
{
    array changed(text);
    function(changed.get());
    require(changed.text().size() < max_path);
    return changed.text();
}

void in_place(std::string const & text, std::string const & other)
{
    require(change(text, path_remove_extension) + path_find_extension(text.c_str()) == text);
    require(change(text, path_strip_path) == path_find_file_name(text.c_str()));
    require(text.starts_with(change(text, path_strip_to_root)));
    require(text.starts_with(change(text, path_remove_args)));
    require(text.find(change(text, path_remove_blanks)) != std::string::npos);
    std::string folder = text;
    while (change(folder, [](char * t) { path_remove_file_spec(t); }).size() < folder.size()) {
        folder = change(folder, [](char * t) { path_remove_file_spec(t); });
    }
    // A share goes from its server, every other root stays.
    std::string const root = change(text, path_strip_to_root);
    require(folder == root || (root.starts_with(folder) && folder.starts_with("\\\\")));

    array quoted(text);
    if (path_quote_spaces(quoted.get())) {
        path_unquote_spaces(quoted.get());
    }
    require(quoted.text() == text);
    array ended(text);
    bool const has_room = path_add_backslash(ended.get()) != nullptr;
    require(has_room ? text.empty() || ended.text().ends_with('\\') : ended.text() == text);
    path_remove_backslash(ended.get());
    array renamed(text);
    bool const fits = path_rename_extension(renamed.get(), other.c_str());
    require(fits || renamed.text() == text);
    array pretty(text);
    bool const changed = path_make_pretty(pretty.get());
    require(changed == (pretty.text() != text)
            && path_compare(pretty.get(), array(text).get()) == 0);
    path_unquote_spaces(array(text).get());
    path_build_root(array(text).get(), static_cast<std::int32_t>(other.size()));
}

void joining(std::string const & text, char const * exact, char const * exact_other)
{
    array canonical("old");
    if (path_canonicalize(canonical.get(), exact)) {
        array twice("old");
        require(path_canonicalize(twice.get(), canonical.get())
                && twice.text() == canonical.text());
        require(path_is_relative(exact) == path_is_relative(canonical.get()));
    } else {
        require(canonical.text() == "old");
    }
    array combined("old");
    if (path_combine(combined.get(), exact, exact_other) == nullptr) {
        require(combined.text() == "old");
    } else {
        array in_place_result(text);
        if (text.size() < max_path) {
            require(path_combine(in_place_result.get(), in_place_result.get(), exact_other)
                        != nullptr
                    && in_place_result.text() == combined.text());
        }
    }
    array appended(text);
    std::string const before = appended.text();
    require(path_append(appended.get(), exact_other) || appended.text() == before);

    array way("old");
    if (path_relative_path_to(way.get(), exact, file_attribute_directory, exact_other, 0)) {
        array end("");
        array wanted("");
        require(path_canonicalize(wanted.get(), exact_other));
        require(path_combine(end.get(), exact, way.get()) != nullptr);
        path_remove_backslash(end.get());
        path_remove_backslash(wanted.get());
        require(path_compare(end.get(), wanted.get()) == 0);
    } else {
        require(way.text() == "old");
    }
    array prefix("");
    int const length = path_common_prefix(exact, exact_other, prefix.get());
    require(static_cast<std::size_t>(length) == prefix.text().size()
            && text.starts_with(prefix.text()));

    array host("");
    array back("");
    if (to_host_path(host.get(), exact) && from_host_path(back.get(), host.get())) {
        array again("");
        require(to_host_path(again.get(), back.get())
                && (again.text() == host.text() || again.text() == "./" + host.text()));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    // The two texts are parted by a line end; a NUL ends both, as it does everywhere.
    std::string const input(reinterpret_cast<char const *>(data), size);
    std::string const whole = input.c_str();
    std::size_t const middle = std::min(whole.find('\n'), whole.size());
    std::string const text = whole.substr(0, middle);
    std::string const other = whole.substr(std::min(middle + 1, whole.size()));
    exact_text const exact(text);
    exact_text const exact_other(other);
    read_only(exact.get(), exact_other.get());
    joining(text, exact.get(), exact_other.get());
    if (text.size() < max_path) {
        in_place(text, other);
    }
    return 0;
}
