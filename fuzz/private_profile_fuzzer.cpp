// SPDX-License-Identifier: MIT
// The grammar of private-profile files: a walk in blocks of any size and an editor, against plain ones
// that go line by line, and writes that are read again. The input is section, name, value and the file's text,
// parted by bytes of 0xFF; the first byte says how to write and how long the blocks are.
#include "zel/platform/profiles/profile_editor.h"
#include "zel/platform/profiles/profile_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace zel::platform;
using answer = std::optional<std::string>;

std::string folded(std::string_view text)
{
    std::string result(text);
    for (char & c : result) {
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    }
    return result;
}

std::string_view trimmed(std::string_view text, std::string_view blanks)
{
    std::size_t const first = text.find_first_not_of(blanks);
    return first == text.npos ? std::string_view()
                              : text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

std::string unquoted(std::string_view text)
{
    bool const quoted = text.size() > 1 && (text.front() == '"' || text.front() == '\'')
        && text.front() == text.back();
    return std::string(quoted ? text.substr(1, text.size() - 2) : text);
}

constexpr std::string_view blanks = " \t\v";

constexpr std::string_view mark = "\xEF\xBB\xBF";

/// A line of a file, and what it is.
struct line {
    std::string text, end;
    bool is_head = false, is_entry = false;
    std::string name; // of the section or the entry, in small letters

    line(std::string_view content, std::string_view line_end)
        : text(content)
        , end(line_end)
    {
        std::string_view const visible = trimmed(text, blanks);
        is_head = visible.starts_with('[');
        is_entry = !is_head && !visible.starts_with(';') && text.find('=') != text.npos;
        name = folded(trimmed(is_head ? visible.substr(1, visible.find(']') - 1)
                                      : visible.substr(0, visible.find('=')),
                              blanks));
    }
};

/// Takes a file apart. Only the last line may have no end.
std::vector<line> lines_of(std::string_view text)
{
    std::vector<line> result;
    while (!text.empty()) {
        std::size_t const size = std::min(text.find_first_of("\r\n"), text.size());
        std::size_t const end = text.substr(size).starts_with("\r\n") ? 2 : 1;
        result.emplace_back(text.substr(0, size), text.substr(size, end));
        text.remove_prefix(std::min(size + end, text.size()));
    }
    return result;
}

/// Where the section begins and ends, and where its entry is; the number of lines for nowhere.
struct place {
    std::size_t head, end, entry;

    place(std::vector<line> const & lines, std::string_view section, std::string_view name)
        : head(lines.size())
        , end(lines.size())
        , entry(lines.size())
    {
        std::string const wanted = folded(trimmed(section, " "));
        std::string const wanted_entry = folded(trimmed(name, " "));
        for (std::size_t i = lines.size(); i-- > 0;) {
            if (lines[i].is_head && lines[i].name == wanted) {
                head = i;
            }
        }
        for (std::size_t i = lines.size(); i-- > head + 1;) {
            end = lines[i].is_head ? i : end;
        }
        for (std::size_t i = end; i-- > head;) {
            entry = lines[i].is_entry && lines[i].name == wanted_entry ? i : entry;
        }
    }
};

/// All that stands behind the `=`.
answer plain_reading(std::string_view text, std::string_view section, std::string_view name)
{
    auto const lines = lines_of(text.substr(text.starts_with(mark) ? mark.size() : 0));
    place const at(lines, section, name);
    return at.entry == lines.size()
        ? answer()
        : lines[at.entry].text.substr(lines[at.entry].text.find('=') + 1);
}

std::string as_text(std::string_view value) { return unquoted(trimmed(value, blanks)); }

std::string as_block(std::string_view bytes)
{
    std::string result;
    unsigned int sum = 0;
    for (char const byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned char>(byte));
        result += digits;
        sum += static_cast<unsigned char>(byte);
    }
    result += "0123456789ABCDEF"[sum / 16 % 16];
    return result + "0123456789ABCDEF"[sum % 16];
}

/// The bytes of a block, or nothing where the value is none.
answer plain_block(std::string_view value)
{
    std::string const digits = as_text(value);
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        char * end = nullptr;
        std::string const pair = digits.substr(i, 2);
        bytes += static_cast<char>(std::strtoul(pair.c_str(), &end, 16));
        if (pair.find_first_not_of("0123456789ABCDEFabcdef") != pair.npos) {
            return {};
        }
    }
    if (digits.empty() || digits.size() % 2 != 0) {
        return {};
    }
    bytes.pop_back();
    return folded(as_block(bytes)) == folded(digits) ? answer(bytes) : answer();
}

/// Whether a file with nothing else in it would give the entry back.
bool comes_back(private_profile_entry const & entry)
{
    bool const is_text = entry.kind == private_profile_entry::text;
    std::string const value(is_text ? entry.value : "");
    std::string file("[");
    file.append(trimmed(entry.section, " ")).append("]\n").append(trimmed(entry.name, " "));
    return plain_reading(file + "=" + value + "\n", entry.section, entry.name) == value;
}

/// The file with the entry written into it.
std::string plain_writing(std::string_view text, private_profile_entry const & entry)
{
    std::string const front(text.starts_with(mark) ? mark : "");
    auto lines = lines_of(text.substr(front.size()));
    place const at(lines, entry.section, entry.name);
    auto const index = [](std::size_t number) { return static_cast<std::ptrdiff_t>(number); };
    std::string const name(trimmed(entry.name, " "));
    std::string const value = entry.kind == private_profile_entry::block ? as_block(entry.value)
                                                                         : std::string(entry.value);
    bool const is_there = at.entry != lines.size();
    if (entry.kind == private_profile_entry::removal) {
        lines.erase(lines.begin() + index(at.entry), lines.begin() + index(at.entry + is_there));
    } else if (is_there) {
        std::string & old = lines[at.entry].text;
        std::size_t const equals = old.find('=');
        std::size_t const visible = std::min(old.find_first_not_of(blanks, equals + 1), old.size());
        bool const has_own = value.find_first_of(blanks) == 0;
        old = old.substr(0, has_own ? equals + 1 : visible) + value;
    } else {
        // Behind the last entry of the section, or else its head; or at the end of the file.
        std::size_t behind = at.end;
        bool const has_section = at.head != lines.size();
        while (has_section && behind-- > at.head + 1 && !lines[behind].is_entry) { }
        std::size_t const next = behind + (has_section ? 1 : 0);
        std::string end = "\n";
        for (std::size_t i = next; i-- > 0 && i + 2 >= next;) {
            if (!lines[i].end.empty()) {
                end = lines[i].end;
                break;
            }
        }
        if (next > 0) {
            lines[next - 1].end = lines[next - 1].end.empty() ? end : lines[next - 1].end;
        }
        auto const added = lines.emplace(lines.begin() + index(next), name + "=" + value, end);
        if (!has_section) {
            std::string head("[");
            head.append(trimmed(entry.section, " ")).append("]");
            lines.emplace(added, head, end);
        }
    }
    std::string result = front;
    for (line const & each : lines) {
        result += each.text + each.end;
    }
    return result;
}

/// Walks over the text in blocks.
bool walk(std::string_view text, std::string_view section, std::string_view name, std::size_t block,
          value_sink & value)
{
    entry_finder finder(section, name, value);
    while (!text.empty() && !finder.feed(text.substr(0, block))) {
        text.remove_prefix(std::min(block, text.size()));
    }
    return finder.found();
}

answer find(std::string_view text, std::string_view section, std::string_view name,
            std::size_t block, std::size_t room = 0)
{
    std::string buffer(room == 0 ? text.size() + 2 : room, '?');
    text_value value(buffer.data(), static_cast<std::uint32_t>(buffer.size()));
    return walk(text, section, name, block, value) ? answer(buffer.substr(0, value.finish()))
                                                   : answer();
}

answer find_block(std::string_view text, std::string_view section, std::string_view name,
                  std::size_t block)
{
    std::string bytes(text.size(), '?');
    block_value value(reinterpret_cast<unsigned char *>(bytes.data()), bytes.size());
    bool const found = walk(text, section, name, block, value) && value.sound();
    return found ? answer(bytes.substr(0, value.size())) : answer();
}

void expect(bool holds, char const * property)
{
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", property);
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * data, std::size_t size)
{
    std::string_view rest(reinterpret_cast<char const *>(data), size);
    unsigned char const choice = size == 0 ? 0 : data[0];
    rest.remove_prefix(size == 0 ? 0 : 1);
    auto const next = [&] {
        std::string_view const field = rest.substr(0, rest.find('\xFF'));
        rest.remove_prefix(std::min(field.size() + 1, rest.size()));
        return field;
    };
    std::string_view const section = next();
    std::string_view const name = next();
    std::string_view const value = next();
    std::string_view const text = rest;

    answer const before = find(text, section, name, text.size() + 1);
    answer const wanted = plain_reading(text, section, name);
    std::size_t const block = choice / 4U + 1;
    expect(before == (wanted ? as_text(*wanted) : wanted), "a walk is a plain reading");
    expect(before == find(text, section, name, block), "blocks may have any size");
    std::size_t const room = choice % 8U + 1;
    expect(find(text, section, name, block, room)
               == (before ? before->substr(0, room - 1) : before),
           "what there is no room for is cut off");
    expect(find_block(text, section, name, block) == (wanted ? plain_block(*wanted) : wanted),
           "a block is told from other texts");

    // Of several entries, the text is that of single writes, and the limit is one to the byte.
    // Without removals where CR ends lines: one that is removed between two empty ones joins their
    // ends to CR LF.
    auto const form = [&](int number) {
        int const forms = text.find('\r') == text.npos ? 3 : 2;
        return static_cast<private_profile_entry::form>(number % forms);
    };
    private_profile_entry const entries[] = {
        {section, name, value, form(choice)},     {section, value, name},
        {value, name, section, form(choice / 3)}, {section, "other", value},
        {section, name, {}, form(choice / 9)},
    };
    std::string single(text);
    profile_editor together(text);
    for (auto const & each : entries) {
        profile_editor alone(single);
        auto const outcome = alone.apply(each);
        expect(outcome == together.apply(each), "a write is refused or not, alone or with others");
        std::string const longer = alone.text();
        bool const written = outcome == profile_editor::outcome::written;
        expect(written == comes_back(each), "what can't be read back is refused");
        expect(longer == (written ? plain_writing(single, each) : single),
               "a write is a plain one");
        if (longer.size() > single.size()) {
            profile_editor limited(single, longer.size()), too_small(single, longer.size() - 1);
            expect(limited.apply(each) == outcome && limited.text() == longer, "there is room");
            expect(too_small.apply(each) == profile_editor::outcome::too_large
                       && too_small.text() == single,
                   "there is no room");
        }
        single = longer;
    }
    expect(together.text() == single, "several writes are one after the other");

    auto const kind = static_cast<private_profile_entry::form>(choice % 3);
    private_profile_entry const entry{section, name, value, kind};
    profile_editor editor(text);
    expect(editor.text() == text, "an editor that does nothing changes nothing");
    if (editor.apply(entry) != profile_editor::outcome::written) {
        expect(editor.text() == text, "a refused write changes nothing");
        return 0;
    }
    std::string const after = editor.text();
    answer const found = find(after, section, name, after.size());
    if (kind == private_profile_entry::text) {
        expect(found == as_text(value), "a value that was written is found");
    } else if (kind == private_profile_entry::block) {
        expect(find_block(after, section, name, block) == value,
               "a block that was written is found");
    } else {
        expect(before.has_value() || after == text, "nothing but an entry can be removed");
        return 0;
    }
    profile_editor again(after);
    expect(again.apply(entry) == profile_editor::outcome::written && again.text() == after,
           "twice is once");
    for (std::string_view const other : {"other", ""}) {
        if (folded(other) != folded(trimmed(name, " "))) {
            expect(find(text, section, other, text.size() + 1)
                       == find(after, section, other, after.size()),
                   "other entries stay");
        }
    }
    return 0;
}
