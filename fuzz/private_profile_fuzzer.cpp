// SPDX-License-Identifier: MIT
// The grammar of private-profile files: a walk in blocks of any size against a plain reading line
// by line, and writes that are read again. The input is section, name, value and the file's text,
// parted by bytes of 0xFF; the first byte says how to write and how long the blocks are.
#include "zel/platform/profiles/profile_editor.h"
#include "zel/platform/profiles/profile_text.h"

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

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

answer plain_reading(std::string_view text, std::string_view section, std::string_view name)
{
    section = trimmed(section, " ");
    name = trimmed(name, " ");
    if (text.starts_with("\xEF\xBB\xBF")) {
        text.remove_prefix(3);
    }
    bool inside = false;
    while (!text.empty()) {
        std::size_t const length = std::min(text.find_first_of("\r\n"), text.size());
        std::string_view const line = trimmed(text.substr(0, length), blanks);
        text.remove_prefix(std::min(length + 1, text.size()));
        if (line.starts_with('[')) {
            if (inside) {
                return {};
            }
            std::string_view const found = line.substr(1, line.find(']') - 1);
            inside = folded(trimmed(found, blanks)) == folded(section);
        } else if (inside && !line.starts_with(';') && line.find('=') != line.npos) {
            std::size_t const equals = line.find('=');
            if (folded(trimmed(line.substr(0, equals), blanks)) == folded(name)) {
                return unquoted(trimmed(line.substr(equals + 1), blanks));
            }
        }
    }
    return {};
}

answer find(std::string_view text, std::string_view section, std::string_view name,
            std::size_t block)
{
    std::string buffer(text.size() + 2, '?');
    text_value value(buffer.data(), static_cast<std::uint32_t>(buffer.size()));
    entry_finder finder(section, name, value);
    while (!text.empty() && !finder.feed(text.substr(0, block))) {
        text.remove_prefix(std::min(block, text.size()));
    }
    return finder.found() ? answer(buffer.substr(0, value.finish())) : answer();
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
    expect(before == plain_reading(text, section, name), "a walk is a plain reading");
    expect(before == find(text, section, name, choice / 4U + 1), "blocks may have any size");

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
        expect(found == unquoted(trimmed(value, blanks)), "a value that was written is found");
    } else if (kind == private_profile_entry::block) {
        std::string bytes(value.size(), '?');
        block_value block(reinterpret_cast<unsigned char *>(bytes.data()), bytes.size());
        block.take(found.value_or(""));
        expect(block.sound() && block.size() == value.size() && bytes == value,
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
