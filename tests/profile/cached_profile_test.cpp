// SPDX-License-Identifier: MIT
#include "zel/profile/cached_profile.h"

#include "tests/profile/recording_store.h"
#include "tests/support/allocations.h"
#include "tests/support/property.h"
#include "tests/support/scratch_folder.h"
#include "zel/core/exception.h"
#include "zel/files/native_path.h"
#include "zel/profile/ini_file.h"
#include <gtest/gtest.h>
#include <map>

namespace {

using zel::auto_ptr;
using zel::cached_profile;
using zel::string;
using numbered = std::list<std::pair<std::int32_t, string>>;

class cached_profile_test : public testing::Test {
protected:
    auto_ptr<recording_store> const below{new recording_store};
    auto_ptr<cached_profile> cache{new cached_profile(below)};
};

TEST_F(cached_profile_test, asks_the_store_once_for_each_entry)
{
    char bytes[5] = "....";
    for (char const * const fallback : {"a", "b"}) { // the first default stays
        EXPECT_EQ(cache->read_string("s", "k", fallback), "text of k");
        EXPECT_EQ(cache->read_string("s", "missing", fallback), "a");
        EXPECT_EQ(cache->read_int("s", "n", *fallback), 42);
        EXPECT_TRUE(cache->read_bool("s", "missing b", *fallback == 'a'));
        EXPECT_EQ(cache->get_binary_size("s", "b"), 3U);
    }
    cache->read_binary("s", "b", bytes, 4); // more than there are
    EXPECT_STREQ(bytes, "xyz.");
    cache->commit();
    cache = nullptr; // what was only read is written nowhere
    EXPECT_EQ(below->take(),
              "read_string s/k=a;read_string s/missing=a;read_int s/n=97;"
              "read_int s/missing b=1;get_binary_size s/b=;read_binary s/b=3;");
}

TEST_F(cached_profile_test, writes_in_order_and_blocks_only_once)
{
    char block[] = "abc";
    string const texts
        = "write_int B/k=2;write_int b/K=1;write_string b/k=1;write_string b/k-1=indexed;";
    cache->write_string("b", "k", "1");
    cache->write_int("B", "k", 2);
    cache->write_bool("b", "K", true);
    cache->write_binary("", "k", block, 2);
    cache->write_by_index_string("b", "k", -1, "indexed");
    cache->write_int("b", "k", 7); // which is a text already
    cache->write_binary("s", "null", nullptr, 3);
    EXPECT_EQ(below->take(), "");
    cache->commit();
    EXPECT_EQ(below->take(), "write_binary /k=ab;" + texts);
    cache->write_binary("", "k", block, 3);
    cache->commit();
    EXPECT_EQ(below->take(), "write_binary /k=abc;" + texts);
    cache = nullptr;
    EXPECT_EQ(below->take(), texts);
}

TEST_F(cached_profile_test, starts_again_after_a_store_that_raised)
{
    char block[] = "abc";
    for (char const * const name : {"a", "b", "c"}) {
        cache->write_binary("s", name, block, 1);
        cache->write_binary("t", name, block, 1);
    }
    below->raise_for = "b";
    EXPECT_THROW(cache->commit(), std::runtime_error);
    EXPECT_EQ(below->take(), "write_binary s/a=a;write_binary s/b=a;");
    cache = nullptr; // nothing leaves; the rest of each section is lost
    EXPECT_EQ(below->take(), "write_binary s/b=a;write_binary t/a=a;write_binary t/b=a;");
}

TEST_F(cached_profile_test, needs_a_store_only_for_what_is_not_in_memory)
{
    cache = new cached_profile(nullptr);
    cache->write_string("s", "k", "v");
    EXPECT_EQ(cache->read_string("s", "k", ""), "v");
    EXPECT_THROW(cache->read_string("s", "l", ""), zel::memory_exception);
    EXPECT_THROW(cache->get_binary_size("s", "l"), zel::memory_exception);
    EXPECT_THROW(cache->commit(), zel::memory_exception);
    cache->write_string("s", "l", "v"); // nothing was kept of what failed
    cache = nullptr;
}

TEST_F(cached_profile_test, reads_lists_through_itself)
{
    class listing : public cached_profile {
    public:
        using cached_profile::cached_profile;
        string read_string(string const & section, string const & key, string const & text) override
        {
            return cached_profile::read_string(section, key, text) + "!";
        }
    } derived(below);
    derived.write_string("s", "list", "3,4");
    derived.write_by_index_string("s", "k", 3, "three");
    numbered list;
    derived.read_multiple("s", "list", ',', "k", list);
    EXPECT_EQ(list, (numbered{{3, "three!"}, {4, "text of k4!"}}));
}

class with_keys : public cached_profile {
public:
    using cached_profile::cached_key;
    using cached_profile::cached_profile;
    using cached_profile::findKey;
    using cached_profile::getKey;
    using cached_profile::insertKey;
    using cached_profile::keys;
};

TEST_F(cached_profile_test, lets_derived_classes_at_its_sections)
{
    auto_ptr<with_keys> derived(new with_keys(below));
    EXPECT_TRUE(derived->findKey("s") == derived->keys.end());
    auto held = derived->getKey("s");
    EXPECT_EQ(held->get_name(), "s");
    EXPECT_TRUE(*derived->findKey("s") == held);
    derived->insertKey(new with_keys::cached_key("a", below));
    EXPECT_EQ(derived->keys.front()->get_name(), "a");
    derived->write_int("s", "k", 1);
    derived->write_int("a", "k", 2);
    derived = nullptr; // the section that is still held waits
    EXPECT_EQ(below->take(), "write_int a/k=2;");
    held = nullptr;
    EXPECT_EQ(below->take(), "write_int s/k=1;");
    EXPECT_EQ(below->ref_count(), 2U);
}

// Names of all lengths, with long common beginnings and every byte but NUL.
TEST_F(cached_profile_test, keeps_names_in_the_order_of_their_bytes)
{
    std::mt19937_64 random(5);
    for (string const & common : {string(), string("configuration.item.")}) {
        auto_ptr<with_keys> const derived(new with_keys(nullptr));
        std::map<std::string, int> model;
        for (int i = 0; i < 3000; ++i) {
            std::string name = random() % 50 == 0 ? string() : common;
            name += any_bytes(random, random() % 12, "aaa");
            std::erase(name, '\0');
            model[name] = i;
            derived->write_int(name, "k", i);
            if (i % 1000 == 0) { // some are in order already, others are not
                EXPECT_TRUE(derived->findKey(name) != derived->keys.end());
            }
        }
        auto section = derived->keys.begin();
        for (auto const & [name, value] : model) {
            ASSERT_EQ(derived->read_int(name, "k", -1), value);
            ASSERT_EQ((*section++)->get_name(), name);
        }
        EXPECT_TRUE(section == derived->keys.end());
    }
}

TEST_F(cached_profile_test, allocates_nothing_for_a_hit)
{
    string const section("a section with a long name"), key("an entry with a long name");
    string const number("number"), none;
    cache->write_string(section, key, "short");
    cache->write_int(section, number, 1);
    std::uint64_t const before = allocations::made;
    bool const right = cache->read_string(section, key, none) == "short"
        && cache->read_int(section, number, 0) == 1;
    EXPECT_EQ(allocations::made, before);
    EXPECT_TRUE(right);
}

TEST_F(cached_profile_test, serves_a_store_that_comes_back_while_it_is_destroyed)
{
    cache->write_int("s", "a", 1);
    cache->write_int("t", "b", 1);
    int calls = 0;
    below->at_write = [&, &cached = *cache.get()] {
        cached.read_string("s", "a", "");
        cached.write_int("u", std::to_string(++calls).c_str(), 2); // for ever
    };
    cache = nullptr;
    EXPECT_EQ(below->take().find("write_int s/a=1;read_string s/a=;write_int t/b=1;"
                                 "write_int u/1=2;"),
              0U);
    EXPECT_LT(calls, 20);
}

class on_a_file : public testing::Test {
protected:
    static auto_ptr<zel::ini_file> store(std::string const & name)
    {
        return new zel::ini_file(zel::from_native(name).c_str());
    }

    scratch_folder folder{fast_place};
    std::string const name = folder.file("settings.ini"), other = folder.file("other.ini");
    auto_ptr<zel::ini_file> const file = store(name);
    auto_ptr<cached_profile> cache{new cached_profile(file)};
};

// A commit asks every section and entry to write itself; each file below is rewritten once.
TEST_F(on_a_file, commits_every_section_and_entry_and_rewrites_the_file_once)
{
    static int values, early;
    static std::string written;
    struct counted_value : zel::profile_cache::int_cached_value {
        using int_cached_value::int_cached_value;
        void commit(auto_ptr<zel::iprofile> store, string const & section) override
        {
            ++values;
            int_cached_value::commit(store, section);
        }
    };
    struct counted_section : with_keys::cached_key {
        using cached_key::cached_key;
        void commit() override
        {
            cached_key::commit();
            early += get(written).find("n=1") != std::string::npos;
        }
    };
    written = name;
    for (string const value : {"1", "2"}) { // by a commit, and by the end
        auto_ptr<with_keys> derived(new with_keys(file));
        auto_ptr<counted_section> section(new counted_section("a", file));
        section->insert_value(new counted_value("n", 1, true));
        derived->insertKey(section.get());
        section = nullptr;
        derived->insertKey(new with_keys::cached_key("there", store(other)));
        derived->write_string("there", "k", value);
        derived->write_string("Sec", "k", "first");
        derived->write_string("sec", "K", "second"); // one entry of the file
        value == "1" ? derived->commit() : void(derived = nullptr);
        EXPECT_EQ(get(name) + get(other), "[Sec]\nk=second\n[a]\nn=1\n[there]\nk=" + value + "\n");
        derived = nullptr;
        std::filesystem::remove(name);
    }
    EXPECT_EQ(values, 3); // the first section commits once more at its end
    EXPECT_EQ(early, 0);
}

TEST_F(on_a_file, keeps_what_a_commit_without_memory_could_not_write)
{
    unsigned char block[] = {1, 2};
    bool failed = true;
    for (std::uint64_t memory = 0; failed; ++memory) {
        cache = new cached_profile(file); // the end of the one before writes once more
        std::filesystem::remove(name);
        cache->write_binary("s", "b", block, 2);
        cache->write_string("s", "t", string(40, 't'));
        try {
            allocations::limit const few(memory);
            cache->commit();
            failed = false;
        } catch (std::bad_alloc const &) {
        }
        cache->commit();
        EXPECT_EQ(get(name), "[s]\nb=010203\nt=" + std::string(40, 't') + "\n") << memory;
        EXPECT_TRUE(failed || memory > 3);
    }
}

} // namespace
