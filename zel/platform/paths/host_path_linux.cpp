// SPDX-License-Identifier: MIT
#include "zel/platform/paths/host_path.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/paths/canonical_path.h"
#include "zel/platform/paths/max_path.h"
#include "zel/platform/paths/path_text.h"
#include <cstring>

namespace zel::platform {
namespace {

bool is_separator(char c) noexcept { return c == '\\' || c == '/'; }

/// True when the last component is `.`; with it the host would follow a link.
bool ends_in_dot(std::string_view text) noexcept
{
    std::size_t const last = text.find_last_not_of("\\/");
    return last != text.npos && last > 0 && text[last] == '.'
        && (is_separator(text[last - 1]) || (last == 2 && begins_with_drive(text)));
}

/// Copies a text without NULs, each `from` as `to`, and ends the copy. Separators are rare, so a
/// search for the next one takes less than a look at every byte.
void copy_with_separators(std::string_view text, char from, char to, char * result) noexcept
{
    result[text.copy(result, text.size())] = '\0';
    while ((result = std::strchr(result, from)) != nullptr) {
        *result++ = to;
    }
}

} // namespace

bool to_host_path(char * result, char const * text) noexcept
{
    *result = '\0';
    std::string_view rest(text == nullptr ? "" : text);
    if (rest.size() >= max_path) {
        return fail(error_filename_exced_range);
    }
    if (rest.starts_with("\\\\?\\") && begins_with_drive(rest.substr(4))) {
        rest.remove_prefix(4);
    }
    // `..` removes the component before it in the text; the host would follow a link first.
    char resolved[max_path];
    if (rest.find("..") != rest.npos || ends_in_dot(rest)) {
        copy_with_separators(rest, '/', '\\', resolved);
        path_canonicalize(resolved, resolved); // does not lengthen it, except to `.\c:`
        rest = resolved;
    }
    if (begins_with_drive(rest)) {
        if ((rest[0] | 0x20) != 'c') {
            return fail(error_path_not_found);
        }
        rest.remove_prefix(2);
        *result++ = '/';
        while (!rest.empty() && is_separator(rest.front())) {
            rest.remove_prefix(1);
        }
    } else if (rest.empty()
               || (rest.size() >= 2 && is_separator(rest[0]) && is_separator(rest[1]))) {
        return fail(error_path_not_found);
    }
    copy_with_separators(rest, '\\', '/', result);
    return true;
}

bool from_host_path(char * result, std::string_view host) noexcept
{
    *result = '\0';
    if (host.find('\\') != host.npos || host.find('\0') != host.npos) {
        return fail(error_bad_pathname);
    }
    std::string_view const front = host.starts_with('/') ? "C:"
        : begins_with_drive(host)                        ? ".\\"
                                                         : "";
    if (front.size() + host.size() > longest_path) {
        return fail(error_filename_exced_range);
    }
    result += front.copy(result, front.size());
    copy_with_separators(host, '/', '\\', result);
    return true;
}

} // namespace zel::platform
