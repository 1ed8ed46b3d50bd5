// SPDX-License-Identifier: MIT
// The texts of paths against plain ones: normalised as they come in, compared without regard to case,
// and walked. The input is two texts, parted by a line end.
#include "zel/files/path.h"

#include <algorithm>
#include <compare>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using zel::path;

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

std::optional<std::string> normalised(std::string text)
{
    std::replace(text.begin(), text.end(), '/', '\\');
    if (text.starts_with('\\') && !text.starts_with("\\\\")) {
        text.insert(text.begin(), '.');
    }
    return text.size() < 260 ? std::optional(text) : std::nullopt;
}

std::string folded(std::string text)
{
    for (char & c : text) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    return text;
}

/// Joining the components gives the canonical path back.
void walk(std::string const & text)
{
    path canonical(text), built;
    for (path rest(text); !rest.empty(); rest = rest.find_next_component()) {
        require(built.append(rest.find_first_component().c_str()));
    }
    require(canonical.canonicalize() && built.canonicalize());
    built.remove_back_slash();
    canonical.remove_back_slash();
    require(built == canonical);
}

void come_in(std::string const & text, std::optional<std::string> const & wanted)
{
    path assigned(std::string(259, 'x')); // what was behind the end does not count
    try {
        assigned = text.c_str();
    } catch (std::length_error &) {
        require(!wanted && assigned == std::string(259, 'x').c_str() && assigned != text.c_str());
        return;
    }
    path const made(text.c_str());
    require(assigned.c_str() == wanted && made.c_str() == wanted && made.size() == wanted->size());
    require(path(zel::string(*wanted)).c_str() == wanted); // twice is once
    require(assigned == made && made == text.c_str());
    require(std::hash<path>()(assigned) == std::hash<path>()(made));
    // Names alone, which are no drives, and do not begin a path of their own.
    bool const has_drive = wanted->size() > 2 && wanted->find(":\\") == 1;
    if (!wanted->starts_with("\\\\") && wanted->find("\\\\\\") == wanted->npos
        && wanted->find(':', has_drive ? 2 : 0) == wanted->npos) {
        walk(*wanted);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    std::string const whole
        = std::string(reinterpret_cast<char const *>(data), size).c_str(); // up to a NUL
    std::size_t const middle = std::min(whole.find('\n'), whole.size());
    std::string const text = whole.substr(0, middle);
    std::string const other = whole.substr(std::min(middle + 1, whole.size()));
    auto const first = normalised(text), second = normalised(other);
    come_in(text, first);
    come_in(other, second);
    if (first && second) {
        path const a(text), b(other);
        std::weak_ordering const order = folded(*first).compare(folded(*second)) <=> 0;
        require((a <=> b) == order && (a == b) == (order == 0) && (a == other.c_str()) == (a == b));
        require(order != 0 || std::hash<path>()(a) == std::hash<path>()(b));
    }
    return 0;
}
