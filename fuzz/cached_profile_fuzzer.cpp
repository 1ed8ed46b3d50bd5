// SPDX-License-Identifier: MIT
// A file, with a cache or a prefix over it or both, against a plain map. The first byte of the input
// says which; every two behind it are one operation: what to do, and with which section, key and
// value.
#include "zel/files/native_path.h"
#include "zel/profile/cached_profile.h"
#include "zel/profile/ini_file.h"
#include "zel/profile/sub_profile.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <list>
#include <map>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using zel::auto_ptr;
using zel::string;
using numbered = std::list<std::pair<std::int32_t, string>>;

/// What `strtol` does where it has 32 bits.
std::string number_of(std::string const & text)
{
    long long const number = std::strtoll(text.c_str(), nullptr, 10);
    return std::to_string(std::clamp<long long>(number, INT32_MIN, INT32_MAX));
}

/// What the stores on top of each other are to do, in the plainest way.
class model {
public:
    model(std::string section_path, bool has_cache)
        : prefix(std::move(section_path))
        , cached(has_cache)
    {
    }

    struct entry {
        char type;
        std::string value;
        bool dirty;
    };

    entry & at(std::string const & section, std::string const & key, char type,
               std::string const & fallback)
    {
        if (!cached) {
            cache.clear();
        }
        auto const [place, fresh]
            = cache.try_emplace({prefix + section, key}, entry{type, fallback, false});
        if (fresh) {
            std::string const * const text = stored(prefix + section, key);
            std::string & value = place->second.value;
            if (type == 'b') {
                // Only what this test writes as a block has the form of one.
                value = text != nullptr && text->ends_with("~") ? *text : "";
            } else if (text != nullptr) {
                value = type == 't' ? plain(*text).substr(0, 1023) : number_of(plain(*text));
            }
        }
        return place->second;
    }
    std::string read(std::string const & section, std::string const & key, char type,
                     std::string const & fallback)
    {
        entry const & found = at(section, key, type, fallback);
        return found.type == type ? found.value : type == 'n' ? "0" : "";
    }
    bool read_bool(std::string const & section, std::string const & key)
    {
        return cached ? read(section, key, 'n', "1") != "0"
                      : folded(read(section, key, 't', "true")) == "true";
    }
    void write_bool(std::string const & section, std::string const & key, bool value)
    {
        write(section, key, 'n', cached ? std::to_string(value) : value ? "true" : "false");
    }
    void write(std::string const & section, std::string const & key, char type,
               std::string const & value)
    {
        if (!cached) {
            cache.clear();
        }
        auto const place
            = cache.try_emplace({prefix + section, key}, entry{type, value, true}).first;
        if (place->second.type == type) {
            place->second = {type, value, true};
        }
        if (!cached) {
            commit();
        }
    }
    void commit()
    {
        for (auto & [name, each] : cache) {
            if (each.dirty && each.value.find('\n') == std::string::npos) {
                store(name.first, name.second, each.value);
            }
            each.dirty = each.dirty && each.type != 'b';
        }
    }
    void restart() { commit(), cache.clear(); }

    /// The file.
    std::string text() const
    {
        std::string result;
        for (auto const & [section, entries] : file) {
            result += "[" + section + "]\n";
            for (auto const & [key, value] : entries) {
                result += key + "=" + plain(value) + "\n";
            }
        }
        return result;
    }

private:
    /// Blocks are kept with a tilde behind them.
    static std::string plain(std::string const & value)
    {
        return value.ends_with("~") ? value.substr(0, value.size() - 1) : value;
    }
    static std::string folded(std::string text)
    {
        std::transform(text.begin(), text.end(), text.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        return text;
    }
    template <typename Pairs> static auto place(Pairs & pairs, std::string const & name)
    {
        return std::find_if(pairs.begin(), pairs.end(),
                            [&](auto const & pair) { return folded(pair.first) == folded(name); });
    }
    std::string const * stored(std::string const & section, std::string const & key)
    {
        auto const part = place(file, section);
        if (part == file.end()) {
            return nullptr;
        }
        auto const found = place(part->second, key);
        return found == part->second.end() ? nullptr : &found->second;
    }
    void store(std::string const & section, std::string const & key, std::string const & value)
    {
        if (place(file, section) == file.end()) {
            file.push_back({section, {}});
        }
        auto & entries = place(file, section)->second;
        auto const found = place(entries, key);
        if (found == entries.end()) {
            entries.push_back({key, value});
        } else {
            found->second = value;
        }
    }

    std::string const prefix;
    bool const cached;
    std::map<std::pair<std::string, std::string>, entry> cache;
    std::vector<std::pair<std::string, std::vector<std::pair<std::string, std::string>>>> file;
};

void expect(bool holds, char const * property)
{
    if (!holds) {
        std::fprintf(stderr, "does not hold: %s\n", property);
        std::abort();
    }
}

/// A file of this process's own, in memory where the host has such a place.
std::string const & file_name()
{
    static std::string const name = (std::filesystem::exists("/dev/shm") ? "/dev/shm" : "/tmp")
        + std::string("/zel-fuzz-") + std::to_string(::getpid()) + ".ini";
    return name;
}

std::string content()
{
    std::ifstream in(file_name(), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

/// The numbers of a list, in the plainest way.
numbered list_of(model & expected, std::string const & section, std::string const & key)
{
    numbered result;
    for (std::string text = expected.read(section, key, 't', "");
         !text.empty() && text.front() != ',';) {
        std::size_t const comma = text.find(',');
        auto const listed = number_of(text.substr(0, comma));
        result.emplace_back(std::stoi(listed),
                            expected.read(section, std::string("b").append(listed), 't', ""));
        text = comma == text.npos ? "" : text.substr(comma + 1);
    }
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const * data, std::size_t size)
{
    std::filesystem::remove(file_name());
    unsigned int const kind = size == 0 ? 0 : data[0];
    data += size == 0 ? 0 : 1;
    size -= size == 0 ? 0 : 1;
    bool const has_cache = kind % 2 == 0, has_prefix = kind / 2 % 2 == 0;
    std::string const path(kind / 4 % 20, 'p');
    auto_ptr<zel::ini_file> const file(new zel::ini_file(zel::from_native(file_name()).c_str()));
    auto_ptr<zel::cached_profile> cache;
    auto_ptr<zel::iprofile> view;
    auto const start = [&] {
        view = file;
        if (has_cache) {
            view = cache = new zel::cached_profile(file);
        }
        if (has_prefix) {
            view = new zel::sub_profile(view, path);
        }
    };
    start();
    model expected(has_prefix ? std::string(path).append("\\") : "", has_cache);
    std::string const texts[]
        = {"", "x", "12y", "1,2", "tRue", "two\nlines", std::string(1200, 'l'), "2,,1"};
    std::string const numbers[] = {
        "-5x", "+7", "- 5", "0x10", "2147483648", "-2147483649", "99999999999999999999", "true."};
    for (; size >= 2; data += 2, size -= 2) {
        std::string const plain_section
            = std::initializer_list<char const *>{"s", "S", "a section of nineteen", ""}
                  .begin()[data[0] / 16 % 4];
        std::string const plain_key
            = std::initializer_list<char const *>{"a", "A", "b1", "b2", "c", "b-1", "", "d"}
                  .begin()[data[1] % 8];
        // What is behind a NUL never matters.
        std::string const tail = data[0] / 64 == 1 ? std::string("\0]=\n", 4) : "";
        std::string const section = plain_section + tail, key = plain_key + tail,
                          base = std::string("b").append(tail);
        int const choice = data[1] / 8 % 8;
        std::int32_t const number = choice - 3;
        std::string const & text = data[0] % 16 == 0 ? texts[choice] : numbers[choice];
        switch (data[0] % 16) {
        case 0:
        case 1:
            view->write_string(section, key, text + tail);
            expected.write(plain_section, plain_key, 't', text);
            break;
        case 2:
            view->write_int(section, key, number);
            expected.write(plain_section, plain_key, 'n', std::to_string(number));
            break;
        case 3:
            view->write_bool(section, key, number > 0);
            expected.write_bool(plain_section, plain_key, number > 0);
            break;
        case 4: {
            char block[] = "A";
            view->write_binary(section, key, block, number > 0);
            expected.write(plain_section, plain_key, 'b', number > 0 ? "4141~" : "00~");
            break;
        }
        case 5:
        case 6:
            expect(view->read_string(section, key, "d" + tail)
                       == expected.read(plain_section, plain_key, 't', "d"),
                   "a text is what was written");
            break;
        case 7:
            expect(std::to_string(view->read_int(section, key, 7))
                       == expected.read(plain_section, plain_key, 'n', "7"),
                   "a number is what was written");
            break;
        case 8:
            expect(view->read_bool(section, key, true)
                       == expected.read_bool(plain_section, plain_key),
                   "a truth value is what was written");
            break;
        case 9: {
            bool const is_one = expected.read(plain_section, plain_key, 'b', "") == "4141~";
            char byte = '?';
            expect(view->get_binary_size(section, key) == is_one, "a block has its size");
            view->read_binary(section, key, &byte, 1);
            expect(byte == (is_one ? 'A' : '?'), "a block is what was written");
            break;
        }
        case 10: {
            numbered list;
            list.emplace_back(0, "before");
            view->read_multiple(section, key, ',', base, list);
            expect(list == list_of(expected, plain_section, plain_key),
                   "a list holds what it names");
            break;
        }
        case 11:
            expected.restart();
            view = nullptr;
            cache = nullptr;
            expect(content() == expected.text(), "the destructor leaves everything in the file");
            start();
            break;
        case 12:
            view->write_by_index_string(section, base, number, text + tail);
            expected.write(plain_section, std::string("b").append(std::to_string(number)), 't',
                           text);
            break;
        case 13: {
            auto const wanted = expected.read(
                plain_section, std::string("b").append(std::to_string(number)), 't', "");
            expect(view->read_by_index_string(section, base, number) == wanted
                       && std::to_string(view->read_by_index_int(section, base, number))
                           == number_of(wanted),
                   "an entry with a number is one of that name");
            break;
        }
        default:
            expected.commit();
            if (has_cache) {
                cache->commit();
            }
            expect(content() == expected.text(), "a commit leaves everything in the file");
        }
    }
    view = nullptr;
    cache = nullptr;
    std::filesystem::remove(file_name());
    return 0;
}
