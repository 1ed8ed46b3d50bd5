// SPDX-License-Identifier: MIT
#include "zel/platform/paths/relative_path.h"

#include "zel/base/ascii.h"
#include "zel/platform/paths/canonical_path.h"
#include "zel/platform/paths/path_text.h"
#include <cstddef>
#include <cstring>
#include <string_view>

namespace zel::platform {
namespace {

/// Removes the first component from `rest`, with all separators before and behind it, and returns
/// it.
constexpr std::string_view take_component(std::string_view & rest) noexcept
{
    auto const skip = [&rest](bool separators) {
        std::size_t size = 0; // components are short: a library call would not pay
        while (size < rest.size() && (rest[size] == '\\') == separators) {
            ++size;
        }
        std::string_view const skipped = rest.substr(0, size);
        rest.remove_prefix(size);
        return skipped;
    };
    skip(true);
    std::string_view const component = skip(false);
    skip(true);
    return component;
}

} // namespace

bool path_relative_path_to(char * result, char const * from, std::int32_t from_attributes,
                           char const * to, std::int32_t to_attributes) noexcept
{
    char start_area[max_path];
    char end_area[max_path];
    if (result == nullptr || !path_canonicalize(start_area, from)
        || !path_canonicalize(end_area, to)) {
        return false;
    }
    std::string_view start = start_area;
    std::string_view end = end_area;
    if ((from_attributes & file_attribute_directory) == 0) {
        start = without_last_component(start);
    }
    std::size_t const root = root_length(start);
    // There is no relative path from `C:` to `C:a`, because joining the two gives `C:\a`.
    if (is_bare_drive(start) || root != root_length(end)
        || !ascii::equal_without_case(start.substr(0, root), end.substr(0, root))) {
        return false;
    }
    // The name of a file is always part of the result, even if the start is a folder of that name.
    std::size_t const shared_end = (to_attributes & file_attribute_directory) == 0
        ? without_last_component(end).size()
        : end.size();

    std::string_view steps = start.substr(root);
    std::string_view shared = end.substr(root, shared_end - root);
    auto const skip_separator
        = [](std::string_view & text) { text.remove_prefix(text.starts_with('\\') ? 1 : 0); };
    skip_separator(steps);
    skip_separator(shared);
    std::size_t in_common = 0; // bytes of whole components that both share
    for (std::size_t i = 0;; ++i) {
        bool const step_ends = i == steps.size() || steps[i] == '\\';
        bool const shared_ends = i == shared.size() || shared[i] == '\\';
        if (step_ends && shared_ends) {
            in_common = i;
        }
        if (i == steps.size() || i == shared.size()
            || (steps[i] != shared[i] && ascii::lower(steps[i]) != ascii::lower(shared[i]))) {
            break;
        }
    }
    if (root <= 1 && in_common == 0) { // a leading backslash alone is no common start
        return false;
    }
    steps.remove_prefix(in_common);
    shared.remove_prefix(in_common);
    skip_separator(shared);

    char way[max_path];
    std::size_t size = 0;
    for (std::string_view component = take_component(steps); !component.empty();
         component = take_component(steps)) {
        // Going back below a `..` would need the name of a folder, which is unknown.
        if (component == ".." || size + 3 > longest_path) {
            return false;
        }
        std::memcpy(way + size, "\\..", 3);
        size += 3;
    }
    std::string_view const back = size == 0 ? "." : std::string_view(way + 1, size - 1);
    std::string_view rest = end.substr(static_cast<std::size_t>(shared.data() - end.data()));
    rest.remove_prefix(rest.starts_with('\\') ? 1 : 0);
    bool const separator = !rest.empty() || (end.ends_with('\\') && end.size() > root);
    if (back.size() + (separator ? 1 : 0) + rest.size() > longest_path) {
        return false;
    }
    store_text(result, back);
    if (separator) {
        result[back.size()] = '\\';
        store_text(result + back.size() + 1, rest);
    }
    return true;
}

int path_common_prefix(char const * first, char const * second, char * result) noexcept
{
    std::string_view a = ""; // not null, so that it can be copied
    std::string_view b = "";
    std::size_t length = 0;
    if (read_path(first, a) && read_path(second, b)
        && begins_with_server(a) == begins_with_server(b)) {
        std::size_t i = begins_with_server(a) ? 2 : 0;
        for (std::size_t const start = i;; ++i) {
            bool const a_ends = i == a.size() || a[i] == '\\';
            bool const b_ends = i == b.size() || b[i] == '\\';
            if (a_ends && b_ends && i > start) {
                // The root of a drive includes its backslash.
                bool const root = i < a.size() && i < b.size() && is_bare_drive(a.substr(0, i));
                length = root ? i + 1 : i;
            }
            if (i == a.size() || i == b.size() || ascii::lower(a[i]) != ascii::lower(b[i])) {
                break;
            }
        }
    }
    if (result != nullptr) {
        store_text(result, a.substr(0, length));
    }
    return static_cast<int>(length);
}

} // namespace zel::platform
