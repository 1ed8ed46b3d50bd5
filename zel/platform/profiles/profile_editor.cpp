// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/profile_editor.h"

#include "zel/base/ascii.h"
#include "zel/base/load_word.h"
#include "zel/platform/profiles/profile_text.h"
#include <algorithm>
#include <array>
#include <cstdint>

namespace zel::platform {
namespace {

/// The bytes that end a name in the file, by their value: line ends and `other`.
constexpr auto ends_of_name(char other)
{
    std::array<bool, 256> ends{};
    ends['\r'] = ends['\n'] = ends[static_cast<unsigned char>(other)] = true;
    return ends;
}
constexpr auto ends_of_section_name = ends_of_name(']');
constexpr auto ends_of_entry_name = ends_of_name('=');

bool is_name(std::string_view text, std::array<bool, 256> const & ends) noexcept
{
    return trim_profile_blanks(text).size() == text.size()
        && std::none_of(text.begin(), text.end(),
                        [&](char c) { return ends[static_cast<unsigned char>(c)]; });
}

bool is_value(std::string_view text) noexcept
{
    char const * const end = text.data() + text.size();
    return find_line_end(text.data(), end) == end;
}

/// Orders two names byte by byte without regard to case: below 0, 0 or above 0.
int order_without_case(std::string_view a, std::string_view b) noexcept
{
    std::size_t const size = std::min(a.size(), b.size());
    std::size_t i = 0;
    while (size - i >= 8
           && load_word<std::uint64_t>(a.data() + i) == load_word<std::uint64_t>(b.data() + i)) {
        i += 8;
    }
    for (; i < size; ++i) {
        auto const x = static_cast<unsigned char>(ascii::lower(a[i]));
        auto const y = static_cast<unsigned char>(ascii::lower(b[i]));
        if (x != y) {
            return x - y;
        }
    }
    return a.size() < b.size() ? -1 : a.size() > b.size() ? 1 : 0;
}

std::string_view leading_blanks(std::string_view text) noexcept
{
    auto const end = std::find_if_not(text.begin(), text.end(), is_profile_blank);
    return text.substr(0, static_cast<std::size_t>(end - text.begin()));
}

std::string_view line_end_at(std::string_view text, std::size_t position) noexcept
{
    bool const both = text.substr(position).starts_with("\r\n");
    return text.substr(position, both ? 2 : 1);
}

/// The line end at the end of the text, or nothing.
std::string_view closing_line_end(std::string_view text) noexcept
{
    std::size_t const size = text.ends_with("\r\n")           ? 2
        : !text.empty() && is_line_end(text[text.size() - 1]) ? 1
                                                              : 0;
    return text.substr(text.size() - size);
}

std::string hexadecimal(std::string_view bytes)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(2 * bytes.size() + 2);
    auto const add = [&](unsigned char byte) {
        text += digits[byte / 16];
        text += digits[byte % 16];
    };
    unsigned char sum = 0;
    for (char const byte : bytes) {
        add(static_cast<unsigned char>(byte));
        sum = static_cast<unsigned char>(sum + static_cast<unsigned char>(byte));
    }
    add(sum);
    return text;
}

} // namespace

bool can_be_read_back(private_profile_entry const & entry) noexcept
{
    std::string_view const section = trim_spaces(entry.section);
    std::string_view const name = trim_spaces(entry.name);
    return is_name(section, ends_of_section_name) && is_name(name, ends_of_entry_name)
        && !name.starts_with(';') && !name.starts_with('[')
        && (entry.kind != private_profile_entry::text || is_value(entry.value));
}

profile_editor::profile_editor(std::string_view text, std::size_t size_limit)
    : size_limit_(size_limit)
    , size_(text.size())
{
    std::size_t const mark = text.starts_with(byte_order_mark) ? byte_order_mark.size() : 0;
    char const * const end = text.data() + text.size();
    char const * const begin = text.data() + mark;
    char const * part = text.data();
    std::string_view name;
    for (char const * at = begin;;) {
        at = find_section_head(begin, at, end, true);
        char const * front = at;
        while (at != end && front != begin && is_profile_blank(front[-1])) {
            --front;
        }
        sections_.push_back({name, std::string_view(part, static_cast<std::size_t>(front - part))});
        if (at == end) {
            break;
        }
        part = front;
        ++at;
        auto const is_name_end = [](char c) { return c == ']' || is_line_end(c); };
        char const * const name_end = std::find_if(at, end, is_name_end);
        name = trim_profile_blanks(std::string_view(at, static_cast<std::size_t>(name_end - at)));
        at = name_end;
    }
}

profile_editor::outcome profile_editor::apply(private_profile_entry const & entry)
{
    if (!can_be_read_back(entry)) {
        return outcome::refused;
    }
    std::string_view const name = trim_spaces(entry.name);
    section * part = find_section(trim_spaces(entry.section));
    std::size_t const position = part == nullptr ? none : find_line(*part, name);
    if (entry.kind == private_profile_entry::removal) {
        if (position != none) {
            remove(*part, position);
        }
        return outcome::written;
    }
    std::string_view value = entry.value;
    if (entry.kind == private_profile_entry::block) {
        value = made_.emplace_back(hexadecimal(value));
    }
    bool written;
    if (position != none) {
        written = set_value(part->lines[position], value);
    } else {
        line added;
        added.lead = name;
        added.equals = "=";
        added.value = value;
        added.name = name;
        added.is_entry = true;
        written = add_entry(part, trim_spaces(entry.section), added);
    }
    return written ? outcome::written : outcome::too_large;
}

std::string profile_editor::text() const
{
    std::string result;
    result.reserve(size_);
    std::string_view run; // pieces that follow each other in the old text too are copied as one
    auto const add = [&](std::string_view piece) {
        if (run.data() + run.size() == piece.data()) {
            run = {run.data(), run.size() + piece.size()};
        } else if (!piece.empty()) {
            result += run;
            run = piece;
        }
    };
    for (section const & part : sections_) {
        if (part.lines.empty()) {
            add(part.text);
            continue;
        }
        for (std::size_t i = 0; i != none; i = part.lines[i].next) {
            line const & each = part.lines[i];
            for (auto const piece : {each.lead, each.equals, each.blanks, each.value, each.end}) {
                add(piece);
            }
        }
    }
    return result += run;
}

profile_editor::section * profile_editor::find_section(std::string_view name)
{
    if (last_found_ != none && ascii::equal_without_case(sections_[last_found_].name, name)) {
        return &sections_[last_found_];
    }
    std::size_t found = none;
    if (section_names_.due()) {
        section_names_.names.reserve(sections_.size());
        for (std::size_t i = 1; i < sections_.size(); ++i) {
            section_names_.names.add(sections_[i].name, i);
        }
    }
    if (section_names_.built()) {
        found = section_names_.names.find(name);
    } else {
        for (std::size_t i = 1; i < sections_.size() && found == none; ++i) {
            found = ascii::equal_without_case(sections_[i].name, name) ? i : none;
        }
    }
    if (found == none) {
        return nullptr;
    }
    last_found_ = found;
    return &sections_[found];
}

/// Accounts for the bytes that a change adds and removes.
/// \returns false, with nothing counted, when the text would exceed its limit.
bool profile_editor::resize(std::size_t removed, std::size_t added) noexcept
{
    std::size_t const size = size_ - removed + added;
    if (added > removed && size > size_limit_) {
        return false;
    }
    size_ = size;
    return true;
}

/// Adds a new entry behind the last one of its section.
/// \param part  null when there is no such section: the section is then added at the end of the
///              file.
bool profile_editor::add_entry(section * part, std::string_view section_name, line added)
{
    section & front = part != nullptr ? *part : sections_.back();
    bool const is_closed = front.lines.empty()
        && (front.text.empty() || front.text == byte_order_mark
            || !closing_line_end(front.text).empty());
    std::string_view * unclosed = nullptr;
    if (is_closed) {
        std::string_view const end = closing_line_end(front.text);
        added.end = end.empty() ? "\n" : end;
    } else {
        open(front);
        std::size_t const behind = part != nullptr ? part->last_entry : front.last;
        added.end = line_end_of(front, behind);
        unclosed = front.lines[behind].end.empty() ? &front.lines[behind].end : nullptr;
    }
    std::size_t const size = added.lead.size() + added.equals.size() + added.value.size()
        + added.end.size() * (unclosed != nullptr ? 2 : 1)
        + (part != nullptr ? 0 : section_name.size() + 2 + added.end.size());
    if (!resize(0, size)) {
        return false;
    }
    if (unclosed != nullptr) {
        *unclosed = added.end;
    }
    insert(part != nullptr ? *part : add_section(section_name, added.end), added);
    return true;
}

profile_editor::section & profile_editor::add_section(std::string_view name, std::string_view end)
{
    std::string & head = made_.emplace_back("[");
    head.append(name).append("]");
    section & part = sections_.emplace_back(section{name, {}});
    line first;
    first.lead = head;
    first.end = end;
    part.lines.push_back(first);
    part.last = 0;
    last_found_ = sections_.size() - 1;
    if (section_names_.built()) {
        section_names_.names.add(name, last_found_);
    }
    return part;
}

/// Parses the section into lines, once.
void profile_editor::open(section & part)
{
    if (!part.lines.empty()) {
        return;
    }
    part.lines.reserve(
        static_cast<std::size_t>(std::count(part.text.begin(), part.text.end(), '\n') + 1));
    for (std::string_view rest = part.text; !rest.empty();) {
        char const * const stop = find_line_end(rest.data(), rest.data() + rest.size());
        auto const length = static_cast<std::size_t>(stop - rest.data());
        line each;
        each.lead = rest.substr(0, length);
        if (length < rest.size()) {
            each.end = line_end_at(rest, length);
        }
        rest.remove_prefix(length + each.end.size());
        std::size_t const equals = each.lead.find('=');
        std::string_view const visible = trim_profile_blanks(each.lead);
        if (equals != each.lead.npos && visible.front() != ';' && visible.front() != '[') {
            std::string_view const behind = each.lead.substr(equals + 1);
            each.is_entry = true;
            each.name = trim_profile_blanks(each.lead.substr(0, equals));
            each.blanks = leading_blanks(behind);
            each.value = behind.substr(each.blanks.size());
            each.lead = each.lead.substr(0, equals + 1);
            part.ascending = part.ascending && is_behind_last_entry(part, each.name);
            part.last_entry = part.lines.size();
        }
        each.previous = part.last;
        part.last = part.lines.size();
        if (each.previous != none) {
            part.lines[each.previous].next = part.last;
        }
        part.lines.push_back(each);
    }
}

/// The blanks between `=` and a value stay unless the new value begins with blanks. So aligned
/// lines stay aligned, and writing a value twice gives the same text as writing it once.
bool profile_editor::set_value(line & entry, std::string_view value) noexcept
{
    std::string_view blanks = entry.blanks.empty() ? leading_blanks(entry.value) : entry.blanks;
    if (!leading_blanks(value).empty()) {
        blanks = {};
    }
    if (!resize(entry.blanks.size() + entry.value.size(), blanks.size() + value.size())) {
        return false;
    }
    entry.blanks = blanks;
    entry.value = value;
    return true;
}

std::size_t profile_editor::find_line(section & part, std::string_view name)
{
    open(part);
    if (part.ascending) {
        // Without the index: entries are often written in the order that they have in the file.
        std::size_t const next = part.lines[part.last_found].next;
        if (next != none && part.lines[next].is_entry
            && order_without_case(part.lines[next].name, name) == 0) {
            part.last_found = next;
            return next;
        }
        if (is_behind_last_entry(part, name)) {
            return none;
        }
    }
    bool const build = part.entries.due();
    if (build) {
        part.entries.names.reserve(part.lines.size());
    }
    std::size_t found = none;
    if (part.entries.built() && !build) {
        found = part.entries.names.find(name);
        part.last_found = found != none ? found : part.last_found;
        return found;
    }
    for (std::size_t i = 0; i != none && (build || found == none); i = part.lines[i].next) {
        line const & each = part.lines[i];
        if (!each.is_entry) {
            continue;
        }
        if (build) {
            part.entries.names.add(each.name, i);
        }
        if (found == none && ascii::equal_without_case(each.name, name)) {
            found = i;
        }
    }
    part.last_found = found != none ? found : part.last_found;
    return found;
}

/// True if the name is greater than that of the section's last entry, or there is none.
bool profile_editor::is_behind_last_entry(section const & part, std::string_view name) noexcept
{
    return part.last_entry == 0 || order_without_case(part.lines[part.last_entry].name, name) < 0;
}

/// Inserts an entry behind the last one of its section.
void profile_editor::insert(section & part, line added)
{
    std::size_t const behind = part.last_entry;
    added.previous = behind;
    added.next = part.lines[behind].next;
    std::size_t const position = part.lines.size();
    part.ascending = part.ascending && is_behind_last_entry(part, added.name);
    part.last_found = position;
    if (part.entries.built()) {
        part.entries.names.add(added.name, position);
    }
    part.lines.push_back(added);
    part.lines[behind].next = position;
    if (added.next != none) {
        part.lines[added.next].previous = position;
    } else {
        part.last = position;
    }
    part.last_entry = position;
}

void profile_editor::remove(section & part, std::size_t position)
{
    line const gone = part.lines[position];
    resize(gone.lead.size() + gone.blanks.size() + gone.value.size() + gone.equals.size()
               + gone.end.size(),
           0);
    part.lines[gone.previous].next = gone.next;
    if (gone.next != none) {
        part.lines[gone.next].previous = gone.previous;
    } else {
        part.last = gone.previous;
    }
    if (part.last_entry == position) {
        std::size_t entry = gone.previous;
        while (entry != 0 && !part.lines[entry].is_entry) {
            entry = part.lines[entry].previous;
        }
        part.last_entry = entry;
    }
    // A second entry of that name may now be the first one.
    part.entries.drop();
    part.ascending = false;
}

/// The line end of a line. Only the last line of the file can have none; then it gets that of the
/// line before it.
std::string_view profile_editor::line_end_of(section const & part,
                                             std::size_t position) const noexcept
{
    std::string_view end = part.lines[position].end;
    if (end.empty() && part.lines[position].previous != none) {
        end = part.lines[part.lines[position].previous].end;
    }
    for (section const * front = &part; end.empty() && front != sections_.data();) {
        --front;
        end = front->lines.empty() ? closing_line_end(front->text) : front->lines[front->last].end;
    }
    return end.empty() ? "\n" : end;
}

} // namespace zel::platform
