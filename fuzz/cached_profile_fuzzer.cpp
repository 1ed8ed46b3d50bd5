// SPDX-License-Identifier: MIT
// The stores on top of each other, a prefix over a cache over a file, against a plain map. Every two
// bytes of the input are one operation: what to do, and with which section, key and value.
#include "zel/files/native_path.h"
#include "zel/profile/cached_profile.h"
#include "zel/profile/ini_file.h"
#include "zel/profile/sub_profile.h"

#include <algorithm>
#include <cctype>
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

/// What the three stores on top of each other are to do, in the plainest way.
class model {
public:
    struct entry {
        char type;
        std::string value;
        bool dirty;
    };

    entry & at(std::string const & section, std::string const & key, char type,
               std::string const & fallback)
    {
        auto const [place, fresh]
            = cache.try_emplace({"p\\" + section, key}, entry{type, fallback, false});
        if (fresh) {
            std::string const * const text = stored("p\\" + section, key);
            std::string & value = place->second.value;
            if (type == 'b') {
                // Only what this test writes as a block has the form of one.
                value = text != nullptr && text->ends_with("~") ? *text : "";
            } else if (text != nullptr) {
                value = type == 't' ? plain(*text).substr(0, 1023)
                                    : std::to_string(std::atoi(plain(*text).c_str()));
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
    void write(std::string const & section, std::string const & key, char type,
               std::string const & value)
    {
        auto const place
            = cache.try_emplace({"p\\" + section, key}, entry{type, value, true}).first;
        if (place->second.type == type) {
            place->second = {type, value, true};
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
        auto const listed = std::to_string(std::atoi(text.substr(0, comma).c_str()));
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
    auto_ptr<zel::ini_file> const file(new zel::ini_file(zel::from_native(file_name()).c_str()));
    auto_ptr<zel::cached_profile> cache(new zel::cached_profile(file));
    auto_ptr<zel::sub_profile> view(new zel::sub_profile(cache, "p"));
    model expected;
    std::string const texts[]
        = {"", "x", "12y", "1,2", "true", "two\nlines", std::string(1200, 'l'), "2,,1"};
    for (; size >= 2; data += 2, size -= 2) {
        std::string const section
            = std::initializer_list<char const *>{"s", "S", "t", ""}.begin()[data[0] / 16 % 4];
        std::string const key
            = std::initializer_list<char const *>{"a", "A", "b1", "b2", "c", "b-1", "", "d"}
                  .begin()[data[1] % 8];
        int const choice = data[1] / 8 % 8;
        std::int32_t const number = choice - 3;
        switch (data[0] % 16) {
        case 0:
        case 1:
            view->write_string(section, key, texts[choice]);
            expected.write(section, key, 't', texts[choice]);
            break;
        case 2:
            view->write_int(section, key, number);
            expected.write(section, key, 'n', std::to_string(number));
            break;
        case 3:
            view->write_bool(section, key, number > 0);
            expected.write(section, key, 'n', number > 0 ? "1" : "0");
            break;
        case 4: {
            char block[] = "A";
            view->write_binary(section, key, block, number > 0);
            expected.write(section, key, 'b', number > 0 ? "4141~" : "00~");
            break;
        }
        case 5:
        case 6:
            expect(view->read_string(section, key, "d") == expected.read(section, key, 't', "d"),
                   "a text is what was written");
            break;
        case 7:
            expect(std::to_string(view->read_int(section, key, 7))
                       == expected.read(section, key, 'n', "7"),
                   "a number is what was written");
            break;
        case 8:
            expect(view->read_bool(section, key, true)
                       == (expected.read(section, key, 'n', "1") != "0"),
                   "a truth value is a number");
            break;
        case 9:
            expect(view->get_binary_size(section, key)
                       == (expected.read(section, key, 'b', "") == "4141~" ? 1U : 0U),
                   "a block has its size");
            break;
        case 10: {
            numbered list;
            view->read_multiple(section, key, ',', "b", list);
            expect(list == list_of(expected, section, key), "a list holds what it names");
            break;
        }
        case 11:
            expected.restart();
            view = nullptr;
            cache = nullptr;
            expect(content() == expected.text(), "the destructor leaves everything in the file");
            cache = new zel::cached_profile(file);
            view = new zel::sub_profile(cache, "p");
            break;
        default:
            expected.commit();
            cache->commit();
            expect(content() == expected.text(), "a commit leaves everything in the file");
        }
    }
    view = nullptr;
    cache = nullptr;
    std::filesystem::remove(file_name());
    return 0;
}
