// SPDX-License-Identifier: MIT
// The road that most programs take: a prefix over a cache over a file.
#include "tests/support/scratch_folder.h"
#include "zel/files/native_path.h"
#include "zel/profile/cached_profile.h"
#include "zel/profile/ini_file.h"
#include "zel/profile/sub_profile.h"
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <random>
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

TEST(stacked_stores, behave_like_a_plain_map)
{
    scratch_folder const folder(fast_place);
    std::string const name = folder.file("settings.ini");
    auto_ptr<zel::ini_file> const file(new zel::ini_file(zel::from_native(name).c_str()));
    auto_ptr<zel::cached_profile> cache(new zel::cached_profile(file));
    std::mt19937 random(11);
    auto const pick = [&](std::initializer_list<std::string> words) {
        return words.begin()[random() % words.size()];
    };
    model expected;
    auto_ptr<zel::sub_profile> view(new zel::sub_profile(cache, "p"));
    for (int step = 0; step < 20'000; ++step) {
        std::string const section = pick({"s", "S", "t", ""});
        std::string const key = pick({"a", "A", "b1", "b2", "c", ""});
        auto const number = static_cast<std::int32_t>(random() % 5) - 2;
        switch (random() % 12) {
        case 0:
        case 1: {
            std::string const value
                = pick({"", "x", "12y", "1,2", "true", "two\nlines", std::string(1200, 'l')});
            view->write_string(section, key, value);
            expected.write(section, key, 't', value);
            break;
        }
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
            ASSERT_EQ(view->read_string(section, key, "d"), expected.read(section, key, 't', "d"));
            break;
        case 7:
            ASSERT_EQ(std::to_string(view->read_int(section, key, 7)),
                      expected.read(section, key, 'n', "7"));
            break;
        case 8:
            ASSERT_EQ(view->read_bool(section, key, true),
                      expected.read(section, key, 'n', "1") != "0");
            break;
        case 9:
            ASSERT_EQ(view->get_binary_size(section, key),
                      expected.read(section, key, 'b', "") == "4141~" ? 1U : 0U);
            break;
        case 10: {
            numbered list, wanted;
            view->read_multiple(section, key, ',', "b", list);
            for (std::string text = expected.read(section, key, 't', "");
                 !text.empty() && text.front() != ',';) {
                std::size_t const comma = text.find(',');
                auto const listed = std::to_string(std::atoi(text.substr(0, comma).c_str()));
                wanted.emplace_back(
                    std::stoi(listed),
                    expected.read(section, std::string("b").append(listed), 't', ""));
                text = comma == text.npos ? "" : text.substr(comma + 1);
            }
            ASSERT_EQ(list, wanted);
            break;
        }
        default:
            if (random() % 4 == 0) {
                expected.restart();
                view = nullptr;
                cache = nullptr;
                cache = new zel::cached_profile(file);
                view = new zel::sub_profile(cache, "p");
            } else {
                expected.commit();
                cache->commit();
            }
            std::string const text = expected.text();
            ASSERT_EQ(get(name), text.empty() ? "<no file>" : text) << step;
        }
    }
}

} // namespace
