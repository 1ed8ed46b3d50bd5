// SPDX-License-Identifier: MIT
#include "zel/platform/paths/shell_path.h"

#include "zel/base/ascii.h"
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace zel::platform {
namespace {

using ascii::equal_without_case;
using ascii::is_letter;

constexpr std::size_t longest = max_path - 1; // bytes of a text without its terminator

// What a result is composed in before it replaces anything: two whole texts and the separators
// and dots between and around them. Only what is left in the end has to fit into a path.
using work_area = char[2 * max_path + 8];

constexpr bool begins_with_drive(std::string_view text) noexcept
{
    return text.size() >= 2 && text[1] == ':' && is_letter(text[0]);
}

constexpr bool begins_with_server(std::string_view text) noexcept
{
    return text.starts_with("\\\\");
}

std::string_view view(char const * text) noexcept { return text == nullptr ? "" : text; }

/// \returns false for a text that no path can hold, of which only the first bytes are looked at.
bool view_path(char const * text, std::string_view & result) noexcept
{
    if (text == nullptr) {
        result = ""; // which has an address, as copying asks for
        return true;
    }
    void const * const end = std::memchr(text, '\0', max_path);
    if (end == nullptr) {
        return false;
    }
    result = {text, static_cast<std::size_t>(static_cast<char const *>(end) - text)};
    return true;
}

void store(char * result, std::string_view text) noexcept
{
    std::memmove(result, text.data(), text.size());
    result[text.size()] = '\0';
}

/// The drive at the start of the text or behind `\\?\`; npos when there is none.
constexpr std::size_t find_drive(std::string_view text) noexcept
{
    std::size_t const start = text.starts_with("\\\\?\\") ? 4 : 0;
    return begins_with_drive(text.substr(start)) ? start : std::string_view::npos;
}

/// Length of the root: `C:\`, `C:`, `\`, `\\server\share` or `\\server`, where the server may
/// be `?` or `?\UNC\server`. The backslash behind a share is not part of it. 0 without a root.
constexpr std::size_t root_length(std::string_view text) noexcept
{
    if (std::size_t const drive = find_drive(text); drive != std::string_view::npos) {
        std::size_t const end = drive + 2;
        return end < text.size() && text[end] == '\\' ? end + 1 : end;
    }
    if (!begins_with_server(text)) {
        return text.starts_with('\\') ? 1 : 0;
    }
    std::size_t const server = equal_without_case(text.substr(0, 8), "\\\\?\\UNC\\") ? 8 : 2;
    std::size_t const server_end = std::min(text.find('\\', server), text.size());
    std::size_t const share_end = std::min(text.find('\\', server_end + 1), text.size());
    return share_end > server_end + 1 ? share_end : server_end;
}

/// True for the root `C:`, behind which a name follows without a backslash.
constexpr bool is_bare_drive(std::string_view root) noexcept
{
    std::size_t const drive = find_drive(root);
    return drive != std::string_view::npos && root.size() == drive + 2;
}

/// Takes the component in front off `rest`, and with it all separators in front and behind.
constexpr std::string_view take_component(std::string_view & rest) noexcept
{
    auto const skip = [&rest](bool separators) {
        std::size_t size = 0; // components are short: nothing is gained by a call
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

/// Composes a canonical text out of a root and components.
class canonical_text {
public:
    explicit canonical_text(std::string_view root) noexcept
        : size_(root.copy(area_, root.size()))
        , root_(size_)
        , floor_(size_)
        , bare_drive_(is_bare_drive(root))
    {
    }

    /// Puts a backslash behind a root that is a drive without one.
    void end_drive() noexcept
    {
        if (bare_drive_) {
            area_[size_++] = '\\';
            root_ = floor_ = size_;
            bare_drive_ = false;
        }
    }

    /// Adds components; `..` takes the last one away. What is added must fit into the area.
    void add(std::string_view components) noexcept
    {
        char const * at = components.data();
        char const * const end = at + components.size();
        while (at != end) {
            std::size_t const before = size_;
            if (size_ > 0 && area_[size_ - 1] != '\\' && !(bare_drive_ && size_ == root_)) {
                area_[size_++] = '\\';
            }
            std::size_t const start = size_;
            while (at != end && *at != '\\') {
                area_[size_++] = *at++;
            }
            at += at != end ? 1 : 0;
            std::size_t const length = size_ - start;
            if (length == 0 || (length == 1 && area_[start] == '.')) {
                size_ = before;
            } else if (length == 2 && area_[start] == '.' && area_[start + 1] == '.') {
                go_up(before);
            }
        }
    }

    /// The text, with a backslash at its end when one is asked for and a root allows it.
    std::string_view finish(bool separator) noexcept
    {
        if (size_ == 0) {
            area_[size_++] = '.'; // what is left of a relative text: the folder it starts in
        } else if (root_ == 0 && begins_with_drive({area_, size_})) {
            std::memmove(area_ + 2, area_, size_); // the name `c:` isn't to become a drive
            std::memcpy(area_, ".\\", 2);
            size_ += 2;
        }
        if (separator && area_[size_ - 1] != '\\' && !(bare_drive_ && size_ == root_)) {
            area_[size_++] = '\\';
        }
        return {area_, size_};
    }

private:
    /// Answers to a `..` that was added to a text of `before` bytes.
    void go_up(std::size_t before) noexcept
    {
        if (before > floor_) {
            size_ = before;
            while (--size_ > floor_ && area_[size_] != '\\') { }
        } else if (root_ > 0) {
            size_ = before;
        } else {
            floor_ = size_;
        }
    }

    work_area area_;
    std::size_t size_;
    std::size_t root_;
    std::size_t floor_; // what is below stays: the root, and the `..` that lead a relative text
    bool bare_drive_;
};

/// Writes what `text` comes to, which may be more than a path holds.
bool store_canonical(char * result, canonical_text & text, bool separator) noexcept
{
    std::string_view const composed = text.finish(separator);
    if (composed.size() > longest) {
        return false;
    }
    store(result, composed);
    return true;
}

/// Doubled separators behind the two of a server are folded before its root is looked for, since an
/// empty share would vanish and make the next component the share.
/// \param area  holds what comes out when that isn't the text itself.
std::string_view fold_server(std::string_view text, char * area) noexcept
{
    if (!begins_with_server(text) || text.find("\\\\", 1) == std::string_view::npos) {
        return text;
    }
    std::size_t size = 0;
    for (char const c : text) {
        if (c != '\\' || size < 2 || area[size - 1] != '\\') {
            area[size++] = c;
        }
    }
    return {area, size};
}

/// True for most texts that are canonical; a false is not the last word.
bool is_canonical(std::string_view text) noexcept
{
    if (begins_with_server(text)) {
        return false;
    }
    std::size_t const drive = begins_with_drive(text) ? 2 : 0;
    text.remove_prefix(drive + (text.substr(drive).starts_with('\\') ? 1 : 0));
    if (text.starts_with('.') || text.starts_with('\\')) {
        return false;
    }
    auto const touched = [](char const * at) { // what `.`, `..` and an empty component begin with
        return static_cast<char>(at[0] == '\\') & static_cast<char>(at[1] == '.' || at[1] == '\\');
    };
    constexpr std::size_t block = 16; // no branch inside, so that all are compared at once
    std::size_t i = 0;
    for (; i + block < text.size(); i += block) {
        char found = 0;
        for (std::size_t k = 0; k < block; ++k) {
            found = static_cast<char>(found | touched(text.data() + i + k));
        }
        if (found != 0) {
            return false;
        }
    }
    for (; i + 1 < text.size(); ++i) {
        if (touched(text.data() + i) != 0) {
            return false;
        }
    }
    return true;
}

bool canonicalize(char * result, std::string_view source) noexcept
{
    if (is_canonical(source)) {
        store(result, source);
        return true;
    }
    char folded[max_path];
    source = fold_server(source, folded);
    std::size_t const root = root_length(source);
    canonical_text text(source.substr(0, root));
    text.add(source.substr(root));
    return store_canonical(result, text, source.ends_with('\\'));
}

bool combine(char * result, std::string_view folder, std::string_view name) noexcept
{
    char folded[max_path];
    folder = fold_server(folder, folded);
    if (folder.empty() && name.empty()) {
        store(result, "\\");
        return true;
    }
    if (folder.empty() || begins_with_drive(name) || begins_with_server(name)) {
        return canonicalize(result, name);
    }
    if (name.empty()) {
        return canonicalize(result, folder);
    }
    std::size_t const root = root_length(folder);
    std::string_view const base = name.starts_with('\\') ? folder.substr(0, root) : folder;
    if (base.empty()) {
        return canonicalize(result, name);
    }
    canonical_text text(base.substr(0, root));
    if (base.size() == root) {
        text.end_drive();
    }
    text.add(base.substr(root));
    text.add(name);
    return store_canonical(result, text, name.ends_with('\\'));
}

/// The part of `text` that stays when its last component goes.
constexpr std::string_view without_last_component(std::string_view text) noexcept
{
    std::size_t const root = root_length(text);
    std::size_t end = text.rfind('\\');
    if (end == std::string_view::npos || end < root) {
        return text.substr(0, root);
    }
    while (end > root && text[end - 1] == '\\') {
        --end;
    }
    return text.substr(0, end);
}

/// The first blank outside double quotes, or the terminator.
char const * find_unquoted_blank(char const * text) noexcept
{
    for (bool quoted = false; *text != '\0' && (quoted || *text != ' '); ++text) {
        quoted = quoted != (*text == '"');
    }
    return text;
}

/// True when a byte of a pattern other than `*` stands for this byte of a name.
constexpr bool stands_for(char wanted, char c) noexcept
{
    return wanted == c || wanted == '?' || ascii::lower(wanted) == ascii::lower(c);
}

/// True when the pattern, in which only `*` and `?` are special, matches the whole name.
bool match_wild_cards(std::string_view name, std::string_view pattern) noexcept
{
    char const * n = name.data();
    char const * n_end = n + name.size();
    char const * p = pattern.data();
    char const * p_end = p + pattern.size();
    // What stands before the first `*` and behind the last one has its place in the name.
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
    // What stands between two of them takes the first place that it fits in: a later one would
    // only leave less for the others.
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

} // namespace

char * path_combine(char * result, char const * folder, char const * name) noexcept
{
    std::string_view first;
    std::string_view second;
    if (result == nullptr || !view_path(folder, first) || !view_path(name, second)
        || !combine(result, first, second)) {
        return nullptr;
    }
    return result;
}

bool path_append(char * text, char const * more) noexcept
{
    std::string_view base;
    std::string_view name;
    if (text == nullptr || !view_path(text, base) || !view_path(more, name)) {
        return false;
    }
    if (!begins_with_server(name) && name.starts_with('\\')) {
        name.remove_prefix(1);
    }
    return combine(text, base, name);
}

bool path_canonicalize(char * result, char const * source) noexcept
{
    std::string_view text;
    return result != nullptr && view_path(source, text) && canonicalize(result, text);
}

char * path_add_backslash(char * text) noexcept
{
    std::string_view const whole = view(text);
    if (text == nullptr || whole.empty() || whole.ends_with('\\')) {
        return text == nullptr ? nullptr : text + whole.size();
    }
    if (whole.size() >= longest) {
        return nullptr;
    }
    text[whole.size()] = '\\';
    text[whole.size() + 1] = '\0';
    return text + whole.size() + 1;
}

char * path_remove_backslash(char * text) noexcept
{
    if (text == nullptr) {
        return nullptr;
    }
    std::string_view const whole = view(text);
    char * const end = text + whole.size();
    if (!whole.ends_with('\\')) {
        return end;
    }
    if (path_is_root(text)) {
        return end - 1;
    }
    end[-1] = '\0';
    return end - 1;
}

char const * path_find_extension(char const * text) noexcept
{
    if (text == nullptr) {
        return nullptr;
    }
    std::string_view const whole = view(text);
    std::size_t const dot = whole.find_last_of("\\ .");
    return text + (dot != std::string_view::npos && whole[dot] == '.' ? dot : whole.size());
}

void path_remove_extension(char * text) noexcept
{
    if (text != nullptr) {
        text[path_find_extension(text) - text] = '\0';
    }
}

bool path_rename_extension(char * text, char const * extension) noexcept
{
    std::string_view added;
    if (text == nullptr || !view_path(extension, added)) {
        return false;
    }
    auto const stem = static_cast<std::size_t>(path_find_extension(text) - text);
    if (stem + added.size() > longest) {
        return false;
    }
    store(text + stem, added);
    return true;
}

bool path_quote_spaces(char * text) noexcept
{
    std::string_view const whole = view(text);
    if (whole.find(' ') == std::string_view::npos || whole.size() + 2 > longest) {
        return false;
    }
    std::memmove(text + 1, text, whole.size());
    text[0] = '"';
    std::memcpy(text + 1 + whole.size(), "\"", 2);
    return true;
}

bool path_unquote_spaces(char * text) noexcept
{
    std::string_view const whole = view(text);
    if (whole.size() < 2 || !whole.starts_with('"') || !whole.ends_with('"')) {
        return false;
    }
    store(text, whole.substr(1, whole.size() - 2));
    return true;
}

char const * path_get_args(char const * text) noexcept
{
    if (text == nullptr) {
        return nullptr;
    }
    char const * const blank = find_unquoted_blank(text);
    return *blank == '\0' ? blank : blank + 1;
}

void path_remove_args(char * text) noexcept
{
    if (text != nullptr) {
        text[find_unquoted_blank(text) - text] = '\0';
    }
}

bool path_remove_file_spec(char * text) noexcept
{
    std::string_view const whole = view(text);
    std::string_view const folder = without_last_component(whole);
    if (folder.size() == whole.size()) {
        return false;
    }
    text[folder.size()] = '\0';
    return true;
}

char const * path_find_file_name(char const * text) noexcept
{
    if (text == nullptr) {
        return nullptr;
    }
    std::string_view const whole = view(text);
    for (std::size_t at = whole.size(); at-- > 1;) {
        if ((whole[at - 1] == '\\' || whole[at - 1] == ':') && whole[at] != '\\') {
            return text + at;
        }
    }
    return text;
}

char const * path_skip_root(char const * text) noexcept
{
    std::string_view const whole = view(text);
    std::size_t const root = root_length(whole);
    if (root == 0) {
        return nullptr;
    }
    bool const separator = begins_with_server(whole) && whole.substr(root).starts_with('\\');
    return text + root + (separator ? 1 : 0);
}

char * path_build_root(char * text, std::int32_t drive) noexcept
{
    if (text != nullptr && drive >= 0 && drive < 26) {
        char const root[] = {static_cast<char>('A' + drive), ':', '\\', '\0'};
        std::memcpy(text, root, sizeof root);
    }
    return text;
}

std::int32_t path_get_drive_number(char const * text) noexcept
{
    std::string_view const whole = view(text);
    std::size_t const drive = find_drive(whole);
    return drive == std::string_view::npos ? -1 : ascii::lower(whole[drive]) - 'a';
}

bool path_strip_to_root(char * text) noexcept
{
    if (text == nullptr) {
        return false;
    }
    std::size_t const root = root_length(text);
    text[root] = '\0';
    return root > 0;
}

void path_strip_path(char * text) noexcept
{
    if (text != nullptr) {
        store(text, path_find_file_name(text));
    }
}

bool path_make_pretty(char * text) noexcept
{
    std::string_view const whole = view(text);
    bool capitals = false;
    for (char const c : whole) {
        if (ascii::is_small(c)) {
            return false;
        }
        capitals = capitals || is_letter(c);
    }
    std::transform(text, text + whole.size(), text, ascii::lower);
    return capitals;
}

void path_remove_blanks(char * text) noexcept
{
    std::string_view rest = view(text);
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    rest = rest.substr(0, rest.find_last_not_of(' ') + 1);
    if (text != nullptr) {
        store(text, rest);
    }
}

bool path_is_file_spec(char const * text) noexcept
{
    return view(text).find_first_of("\\:") == std::string_view::npos;
}

bool path_is_relative(char const * text) noexcept { return root_length(view(text)) == 0; }

bool path_is_root(char const * text) noexcept
{
    std::string_view const whole = view(text);
    return !whole.empty() && root_length(whole) == whole.size() && !is_bare_drive(whole);
}

bool path_is_url(char const * text) noexcept
{
    std::string_view const whole = view(text);
    std::size_t const scheme = whole.find(':');
    // RFC 3986 allows a scheme of one letter; here that is a drive.
    return scheme != std::string_view::npos && scheme >= 2 && is_letter(whole[0])
        && std::all_of(
               whole.begin() + 1, whole.begin() + static_cast<std::ptrdiff_t>(scheme), [](char c) {
                   return is_letter(c) || ascii::is_digit(c) || c == '+' || c == '-' || c == '.';
               });
}

char const * path_find_next_component(char const * text) noexcept
{
    if (text == nullptr || *text == '\0') {
        return nullptr;
    }
    char const * const separator = std::strchr(text, '\\');
    if (separator == nullptr) {
        return text + std::strlen(text);
    }
    return separator + std::strspn(separator, "\\");
}

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
    // From `C:` alone nothing leads to `C:a`, since the two joined are `C:\a`.
    if (is_bare_drive(start) || root != root_length(end)
        || !equal_without_case(start.substr(0, root), end.substr(0, root))) {
        return false;
    }
    // The name of a file is always told, also where a folder of that name would be the start.
    std::size_t const shared_end = (to_attributes & file_attribute_directory) == 0
        ? without_last_component(end).size()
        : end.size();

    std::string_view steps = start.substr(root);
    std::string_view shared = end.substr(root, shared_end - root);
    auto const skip_separator
        = [](std::string_view & text) { text.remove_prefix(text.starts_with('\\') ? 1 : 0); };
    skip_separator(steps);
    skip_separator(shared);
    std::size_t in_common = 0; // bytes of whole components
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
    if (root <= 1 && in_common == 0) { // a lone backslash leads nowhere in common
        return false;
    }
    steps.remove_prefix(in_common);
    shared.remove_prefix(in_common);
    skip_separator(shared);

    char way[max_path];
    std::size_t size = 0;
    for (std::string_view component = take_component(steps); !component.empty();
         component = take_component(steps)) {
        // The way back into `..` would need the name of a folder that nobody told.
        if (component == ".." || size + 3 > longest) {
            return false;
        }
        std::memcpy(way + size, "\\..", 3);
        size += 3;
    }
    std::string_view const back = size == 0 ? "." : std::string_view(way + 1, size - 1);
    std::string_view rest = end.substr(static_cast<std::size_t>(shared.data() - end.data()));
    rest.remove_prefix(rest.starts_with('\\') ? 1 : 0);
    bool const separator = !rest.empty() || (end.ends_with('\\') && end.size() > root);
    if (back.size() + (separator ? 1 : 0) + rest.size() > longest) {
        return false;
    }
    store(result, back);
    if (separator) {
        result[back.size()] = '\\';
        store(result + back.size() + 1, rest);
    }
    return true;
}

int path_common_prefix(char const * first, char const * second, char * result) noexcept
{
    std::string_view a;
    std::string_view b;
    std::size_t length = 0;
    if (view_path(first, a) && view_path(second, b)
        && begins_with_server(a) == begins_with_server(b)) {
        std::size_t i = begins_with_server(a) ? 2 : 0;
        for (std::size_t const start = i;; ++i) {
            bool const a_ends = i == a.size() || a[i] == '\\';
            bool const b_ends = i == b.size() || b[i] == '\\';
            if (a_ends && b_ends && i > start) {
                // The root of a drive is no root without its backslash.
                bool const root = i < a.size() && i < b.size() && is_bare_drive(a.substr(0, i));
                length = root ? i + 1 : i;
            }
            if (i == a.size() || i == b.size() || ascii::lower(a[i]) != ascii::lower(b[i])) {
                break;
            }
        }
    }
    if (result != nullptr) {
        store(result, a.substr(0, length));
    }
    return static_cast<int>(length);
}

bool name_matches(std::string_view name, std::string_view pattern) noexcept
{
    if (pattern == "*.*" || match_wild_cards(name, pattern)) {
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
        if (name_matches(name, spec.substr(start, end - start))) {
            return true;
        }
        if (end == spec.size()) {
            return false;
        }
        start = end + 1;
    }
}

} // namespace zel::platform
