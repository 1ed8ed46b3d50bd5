// SPDX-License-Identifier: MIT
// Every shell path function on two texts, each in a block of exactly its size and each result in
// an array of exactly a path's, so that the sanitizer sees one byte too many; against a plain model
// of each.
#include "zel/platform/paths/canonical_path.h"
#include "zel/platform/paths/host_path.h"
#include "zel/platform/paths/max_path.h"
#include "zel/platform/paths/path_compare.h"
#include "zel/platform/paths/path_match.h"
#include "zel/platform/paths/path_parts.h"
#include "zel/platform/paths/relative_path.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace zel::platform;

void require(bool holds, int line = __builtin_LINE())
{
    if (!holds) {
        std::fprintf(stderr, "does not hold: line %d\n", line);
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

/// What the functions are to do, in the plainest way.
namespace plain {

using text = std::string;
using view = std::string_view;
using maybe = std::optional<text>; // nothing for a refusal

constexpr std::size_t longest = max_path - 1;

text lower(view source)
{
    text result(source);
    for (char & c : result) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    return result;
}

bool is_letter(char c) { return lower({&c, 1}).front() >= 'a' && lower({&c, 1}).front() <= 'z'; }

bool begins_with_drive(view t) { return t.size() > 1 && t[1] == ':' && is_letter(t[0]); }

bool begins_with_server(view t) { return t.starts_with("\\\\"); }

std::size_t drive(view t)
{
    std::size_t const front = t.starts_with("\\\\?\\") ? 4 : 0;
    return begins_with_drive(t.substr(front)) ? front : t.npos;
}

text root(view t)
{
    if (drive(t) != t.npos) {
        return text(t.substr(0, drive(t) + (t.substr(drive(t) + 2).starts_with('\\') ? 3 : 2)));
    }
    if (!begins_with_server(t)) {
        return t.starts_with('\\') ? "\\" : "";
    }
    text result(t.substr(0, lower(t).starts_with("\\\\?\\unc\\") ? 8 : 2));
    t.remove_prefix(result.size());
    result += t.substr(0, t.find('\\'));
    t.remove_prefix(std::min(t.find('\\'), t.size()));
    view const share = t.empty() ? t : t.substr(1, t.substr(1).find('\\'));
    return share.empty() ? result : result + "\\" + text(share);
}

bool is_bare_drive(view t) { return drive(t) != t.npos && t.size() == drive(t) + 2; }

bool is_root(view t) { return !t.empty() && root(t) == t && !is_bare_drive(t); }

std::vector<text> components(view t)
{
    std::vector<text> result(1);
    for (char const c : t) {
        c == '\\' ? result.emplace_back() : result.back() += c;
    }
    std::erase(result, "");
    return result;
}

text joined(std::vector<text> const & all, std::size_t first = 0)
{
    text result;
    for (std::size_t i = first; i < all.size(); ++i) {
        result += (i == first ? "" : "\\") + all[i];
    }
    return result;
}

maybe if_it_fits(maybe t) { return t && t->size() <= longest ? t : std::nullopt; }

maybe resolved(text const & front, view rest, bool separator)
{
    std::vector<text> stack;
    for (text const & each : components(rest)) {
        bool const leads_up = each == "..";
        if (leads_up && !stack.empty() && stack.back() != "..") {
            stack.pop_back();
        } else if (each != "." && (!leads_up || front.empty())) {
            stack.push_back(each);
        }
    }
    bool const together = front.empty() || front.ends_with('\\') || is_bare_drive(front);
    text result = front + (together || stack.empty() ? "" : "\\") + joined(stack);
    if (result.empty()) {
        result = ".";
    } else if (front.empty() && begins_with_drive(result)) {
        result.insert(0, ".\\"); // which is no drive
    }
    bool const ends = result.ends_with('\\') || (stack.empty() && is_bare_drive(front));
    return if_it_fits(result + (separator && !ends ? "\\" : ""));
}

/// The share of a server stands behind any number of separators.
text folded(view t)
{
    if (!begins_with_server(t)) {
        return text(t);
    }
    text const rest = joined(components(t));
    return "\\\\" + rest + (!rest.empty() && t.ends_with('\\') ? "\\" : "");
}

maybe canonical(view source)
{
    text const t = folded(source);
    return source.empty()         ? maybe("")
        : source.size() > longest ? std::nullopt
                                  : resolved(root(t), t.substr(root(t).size()), t.ends_with('\\'));
}

maybe combined(view first, view name)
{
    text const folder = folded(first);
    if (first.size() > longest || name.size() > longest) {
        return {};
    }
    if (folder.empty() && name.empty()) {
        return "\\";
    }
    text const base = name.starts_with('\\') ? root(folder) : folder;
    if (base.empty() || begins_with_drive(name) || begins_with_server(name)) {
        return canonical(name);
    }
    if (name.empty()) {
        return canonical(folder);
    }
    text const front = root(folder);
    return resolved(is_bare_drive(base) ? front + "\\" : front,
                    base.substr(front.size()) + "\\" + text(name), name.ends_with('\\'));
}

maybe appended(view t, view more)
{
    bool const slash = !begins_with_server(more) && more.starts_with('\\');
    return more.size() > longest ? std::nullopt : combined(t, more.substr(slash ? 1 : 0));
}

maybe way(view source, bool from_file, view target, bool to_file)
{
    maybe const from = canonical(source), to = canonical(target);
    if (!from || !to || lower(root(*from)) != lower(root(*to))) {
        return {};
    }
    std::size_t const root_size = root(*from).size();
    auto steps = components(from->substr(root_size)), names = components(to->substr(root_size));
    if (from_file && !from->ends_with('\\') && !steps.empty()) {
        steps.pop_back();
    }
    std::size_t const own_name = to_file && !to->ends_with('\\') && !names.empty() ? 1 : 0;
    std::size_t common = 0;
    while (common < std::min(steps.size(), names.size() - own_name)
           && lower(steps[common]) == lower(names[common])) {
        ++common;
    }
    if ((root_size <= 1 && common == 0) || (is_bare_drive(root(*from)) && steps.empty())) {
        return {};
    }
    for (std::size_t i = common; i < steps.size(); ++i) {
        if (steps[i] == "..") {
            return {};
        }
        steps[i] = "..";
    }
    text result = common == steps.size() ? "." : joined(steps, common);
    result += (common < names.size() ? "\\" : "") + joined(names, common);
    return if_it_fits(result + (to->ends_with('\\') && to->size() > root_size ? "\\" : ""));
}

text common_prefix(view a, view b)
{
    std::size_t const front = begins_with_server(a) ? 2 : 0;
    if (a.size() > longest || b.size() > longest
        || begins_with_server(a) != begins_with_server(b)) {
        return "";
    }
    auto const ends = [](view t, std::size_t i) { return i == t.size() || t[i] == '\\'; };
    for (std::size_t i = std::min(a.size(), b.size()); i > front; --i) {
        if (ends(a, i) && ends(b, i) && lower(a.substr(0, i)) == lower(b.substr(0, i))) {
            bool const drive = is_bare_drive(a.substr(0, i)) && i < std::min(a.size(), b.size());
            return text(a.substr(0, i + drive));
        }
    }
    return "";
}

text file_name(view t)
{
    std::size_t const last = t.find_last_not_of('\\');
    bool const any = last != t.npos && last > 0;
    return text(t.substr(any ? t.find_last_of("\\:", last - 1) + 1 : 0));
}

text folder(view t)
{
    text const front = root(t);
    view rest = t.substr(front.size());
    if (rest.empty() && begins_with_server(t) && !t.starts_with("\\\\?\\") && t.rfind('\\') > 1) {
        return text(t.substr(0, t.rfind('\\')));
    }
    rest = rest.substr(0, rest.find('\\') == rest.npos ? 0 : rest.rfind('\\'));
    return front + text(rest.substr(0, rest.find_last_not_of('\\') + 1));
}

text extension(view t)
{
    t.remove_prefix(t.find_last_of("\\ ") + 1);
    return text(t.substr(std::min(t.rfind('.'), t.size())));
}

std::size_t blank_outside_quotes(view t)
{
    for (std::size_t i = 0; i < t.size(); ++i) {
        if (t[i] == ' ' && std::count(t.begin(), t.begin() + static_cast<long>(i), '"') % 2 == 0) {
            return i;
        }
    }
    return t.size();
}

text trimmed(view t)
{
    t.remove_prefix(std::min(t.find_first_not_of(' '), t.size()));
    return text(t.substr(0, t.find_last_not_of(' ') + 1));
}

bool is_url(view t)
{
    view const scheme = t.substr(0, t.find(':'));
    return scheme.size() > 1 && scheme.size() < t.size() && is_letter(scheme[0])
        && std::all_of(scheme.begin(), scheme.end(), [](char c) {
               return is_letter(c) || view("0123456789+-.").find(c) != view::npos;
           });
}

/// Whether the pattern takes each beginning of the name, one byte of the pattern after the other.
bool wild(view name, view pattern)
{
    std::vector<bool> taken(name.size() + 1);
    taken[0] = true;
    for (char const p : pattern) {
        for (std::size_t i = name.size() + 1; i-- > 0 && p != '*';) {
            bool const same = i > 0 && (p == '?' || lower({&p, 1}) == lower(name.substr(i - 1, 1)));
            taken[i] = same && taken[i - 1];
        }
        for (std::size_t i = 1; i <= name.size() && p == '*'; ++i) {
            taken[i] = taken[i] || taken[i - 1];
        }
    }
    return taken.back();
}

bool listed(view name, view pattern)
{
    bool const no_dot = pattern.ends_with('.') && name.find('.') == name.npos;
    return pattern == "*.*" || wild(name, pattern)
        || (no_dot && wild(name, pattern.substr(0, pattern.size() - 1)));
}

bool matches(view name, view spec)
{
    view part = spec.substr(0, spec.find(';'));
    bool const is_last = part.size() == spec.size();
    part.remove_prefix(std::min(part.find_first_not_of(' '), part.size()));
    return part == "*.*" || wild(name, part)
        || (!is_last && matches(name, spec.substr(spec.find(';') + 1)));
}

} // namespace plain

/// What a function leaves in an array that holds `text`; its result is true where that changed.
template <typename Function> std::string change(std::string const & text, Function && function)
{
    array changed(text);
    function(changed.get());
    require(changed.text().size() < max_path);
    return changed.text();
}

void read_only(std::string const & text, char const * exact, char const * other)
{
    std::string const root = plain::root(text);
    require(path_find_extension(exact) == plain::extension(text));
    require(path_find_file_name(exact) == plain::file_name(text));
    std::size_t const blank = plain::blank_outside_quotes(text);
    require(path_get_args(exact) == exact + blank + (blank == text.size() ? 0 : 1));
    std::size_t const first = std::min(text.find('\\'), text.size());
    char const * const next = path_find_next_component(exact);
    require(next == nullptr ? text.empty()
                            : next
                    == exact + first
                        + (first == text.size()                         ? 0
                               : text.substr(first).starts_with("\\\\") ? 2
                                                                        : 1));
    char const * const rest = path_skip_root(exact);
    bool const separator = text.starts_with("\\\\") && text.substr(root.size()).starts_with('\\');
    require(root.empty() ? rest == nullptr : rest == exact + root.size() + separator);
    std::size_t const drive = plain::drive(text);
    require(path_get_drive_number(exact)
            == (drive == text.npos ? -1 : plain::lower(text)[drive] - 'a'));
    require(path_is_root(exact) == plain::is_root(text));
    require(path_is_relative(exact) == root.empty());
    require(path_is_file_spec(exact) == (text.find_first_of("\\:") == text.npos));
    require(path_is_url(exact) == plain::is_url(text));
    require(path_match_spec(exact, other) == plain::matches(text, other));
    require(listing_matches(exact, other) == plain::listed(text, other));
}

void in_place(std::string const & text, std::string const & other)
{
    std::string const extension = plain::extension(text);
    std::string const stem = text.substr(0, text.size() - extension.size());
    require(change(text, path_remove_extension) == stem);
    bool const fits = stem.size() + other.size() < max_path;
    auto const renamed
        = change(text, [&](char * t) { require(path_rename_extension(t, other.c_str()) == fits); });
    require(renamed == (fits ? stem + other : text));
    require(change(text, path_strip_path) == plain::file_name(text));
    require(change(text, path_strip_to_root) == plain::root(text));
    require(change(text, path_remove_args) == text.substr(0, plain::blank_outside_quotes(text)));
    require(change(text, path_remove_blanks) == plain::trimmed(text));
    require(change(text,
                   [&](char * t) {
                       require(path_remove_file_spec(t) == (plain::folder(text) != text));
                   })
            == plain::folder(text));

    bool const quotes = text.find(' ') != text.npos && text.size() + 2 < max_path;
    std::string const quoted = "\"" + text + "\"";
    require(change(text, path_quote_spaces) == (quotes ? quoted : text));
    bool const unquotes = text.size() > 1 && text.starts_with('"') && text.ends_with('"');
    require(change(text, path_unquote_spaces)
            == (unquotes ? text.substr(1, text.size() - 2) : text));
    require(!quotes || change(quoted, path_unquote_spaces) == text);
    bool const ends = text.empty() || text.ends_with('\\');
    bool const has_room = text.size() < max_path - 1;
    require(change(text,
                   [&](char * t) {
                       char const * const end = path_add_backslash(t);
                       require(ends || has_room ? end == t + std::strlen(t) : end == nullptr);
                   })
            == (ends || !has_room ? text : text + "\\"));
    bool const loses = text.ends_with('\\') && !plain::is_root(text);
    require(change(text, path_remove_backslash) == text.substr(0, text.size() - loses));
    std::string const lower = plain::lower(text);
    bool const is_pretty
        = std::any_of(text.begin(), text.end(), [](char c) { return c >= 'a' && c <= 'z'; });
    require(change(text,
                   [&](char * t) { require(path_make_pretty(t) == (!is_pretty && lower != text)); })
            == (is_pretty ? text : lower));
    int const drive = static_cast<int>(other.size() % 28);
    require(change("old", [&](char * t) { path_build_root(t, drive); })
            == (drive < 26 ? std::string(1, static_cast<char>('A' + drive)) + ":\\" : "old"));
}

/// Compares a refusal, which changes nothing, or a result.
void require_result(bool succeeds, array const & result, plain::maybe const & wanted,
                    std::string const & old = "old")
{
    require(succeeds == wanted.has_value() && result.text() == wanted.value_or(old));
}

void joining(std::string const & text, std::string const & other, char const * exact,
             char const * exact_other)
{
    array canonical("old"), combined("old");
    require_result(path_canonicalize(canonical.get(), exact), canonical, plain::canonical(text));
    require_result(path_combine(combined.get(), exact, exact_other) != nullptr, combined,
                   plain::combined(text, other));
    array appended(text);
    std::string const before = appended.text();
    require_result(path_append(appended.get(), exact_other), appended,
                   plain::appended(before, other), before);
    if (plain::canonical(text)) {
        array twice("old");
        require(path_canonicalize(twice.get(), canonical.get())
                && twice.text() == canonical.text());
    }

    for (bool const from_file : {false, true}) {
        for (bool const to_file : {false, true}) {
            array way("old");
            bool const leads
                = path_relative_path_to(way.get(), exact, from_file ? 0 : file_attribute_directory,
                                        exact_other, to_file ? 0 : file_attribute_directory);
            require_result(leads, way, plain::way(text, from_file, other, to_file));
            if (leads && !from_file) { // to the other one
                array end(""), wanted("");
                require(path_canonicalize(wanted.get(), exact_other));
                require(path_combine(end.get(), exact, way.get()) != nullptr);
                path_remove_backslash(end.get());
                path_remove_backslash(wanted.get());
                require(path_compare(end.get(), wanted.get()) == 0);
            }
        }
    }
    array prefix("");
    int const length = path_common_prefix(exact, exact_other, prefix.get());
    require(prefix.text() == plain::common_prefix(text, other)
            && static_cast<std::size_t>(length) == prefix.text().size());

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
    read_only(text, exact.get(), exact_other.get());
    joining(text, other, exact.get(), exact_other.get());
    if (text.size() < max_path) {
        in_place(text, other);
    }
    return 0;
}
