// SPDX-License-Identifier: MIT
#include "zel/platform/paths/path_match.h"

#include "zel/base/ascii.h"
#include <cstddef>

namespace zel::platform {
namespace {

/// True if this byte of a pattern, which is not `*`, matches this byte of a name.
constexpr bool stands_for(char wanted, char c) noexcept
{
    return wanted == c || wanted == '?' || ascii::lower(wanted) == ascii::lower(c);
}

/// True if the pattern matches the whole name. Only `*` and `?` are special.
bool match_wild_cards(std::string_view name, std::string_view pattern) noexcept
{
    char const * n = name.data();
    char const * n_end = n + name.size();
    char const * p = pattern.data();
    char const * p_end = p + pattern.size();
    // The parts before the first `*` and behind the last `*` have fixed places in the name.
    for (; p != p_end && *p != '*'; ++p, ++n) {
        if (n == n_end || !stands_for(*p, *n)) {
            return false;
        }
    }
    if (p == p_end) {
        return n == n_end;
    }
    for (; p_end[-1] != '*'; --p_end, --n_end) {
        if (n == n_end || !stands_for(p_end[-1], n_end[-1])) {
            return false;
        }
    }
    // A part between two `*` is matched at the first place where it fits; a later place would only
    // leave less for the parts behind it.
    for (;;) {
        while (p != p_end && *p == '*') {
            ++p;
        }
        if (p == p_end) {
            return true;
        }
        std::ptrdiff_t i = 0;
        while (p[i] != '*') {
            if (n + i == n_end) {
                return false;
            }
            if (stands_for(p[i], n[i])) {
                ++i;
            } else {
                ++n;
                i = 0;
            }
        }
        n += i;
        p += i;
    }
}

bool matches(std::string_view name, std::string_view pattern) noexcept
{
    return pattern == "*.*" || match_wild_cards(name, pattern);
}

} // namespace

bool listing_matches(std::string_view name, std::string_view pattern) noexcept
{
    if (matches(name, pattern)) {
        return true;
    }
    return pattern.ends_with('.') && name.find('.') == std::string_view::npos
        && match_wild_cards(name, pattern.substr(0, pattern.size() - 1));
}

bool path_match_spec(std::string_view name, std::string_view spec) noexcept
{
    for (std::size_t start = 0;;) {
        while (start < spec.size() && spec[start] == ' ') {
            ++start;
        }
        std::size_t end = start;
        while (end < spec.size() && spec[end] != ';') {
            ++end;
        }
        if (matches(name, spec.substr(start, end - start))) {
            return true;
        }
        if (end == spec.size()) {
            return false;
        }
        start = end + 1;
    }
}

} // namespace zel::platform
