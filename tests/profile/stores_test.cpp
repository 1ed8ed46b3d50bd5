// SPDX-License-Identifier: MIT
#include "zel/profile/ini_file.h"
#include "zel/profile/sub_profile.h"

#include "tests/profile/recording_store.h"
#include "tests/support/property.h"
#include "tests/support/scratch_folder.h"
#include "zel/core/exception.h"
#include "zel/files/native_path.h"
#include "zel/profile/cached_profile.h"
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <stdexcept>

extern "C" property cached_profile_property;

namespace {

using zel::auto_ptr;
using zel::string;

TEST(stores, behave_like_a_plain_map_alone_and_over_each_other)
{
    expect_for_any(cached_profile_property, 200, [](auto & random) {
        return any_bytes(random, 801, std::string_view("\0\2\5\6", 4));
    });
}

class ini_file : public testing::Test {
protected:
    scratch_folder folder;
    std::string const name = folder.file("settings.ini");
    zel::ini_file store{zel::from_native(name).c_str()};
};

TEST_F(ini_file, writes_the_texts_that_are_promised)
{
    unsigned char block[] = {0xAB, 0x00, 0xFF}, copy[4] = {1, 2, 3, 4};
    store.write_int("n", "low", INT32_MIN);
    store.write_int("n", "high", INT32_MAX);
    store.write_binary("b", "some", block, 3);
    store.write_binary("b", "gone", block, 1);
    store.write_binary("b", "gone", nullptr, 1);
    EXPECT_EQ(get(name), "[n]\nlow=-2147483648\nhigh=2147483647\n[b]\nsome=AB00FFAA\n");
    EXPECT_EQ(store.read_int("n", "low", 0), INT32_MIN);
    store.read_binary("b", "some", copy, 2); // not its size: left alone
    EXPECT_EQ(copy[0], 1);
    store.read_binary("b", "some", copy, store.get_binary_size("b", "some"));
    EXPECT_EQ(std::memcmp(copy, "\xAB\0\xFF\4", 4), 0);
}

TEST_F(ini_file, reads_the_first_bytes_of_what_there_is_or_else_of_the_default)
{
    put(name,
        std::string("[s]\nn=").append(126, '0') + "12\nt=true" + std::string(80, ' ')
            + "x\nm='\t 7'\n");
    EXPECT_EQ(store.read_int("s", "n", 99), 1); // 127 of them
    EXPECT_EQ(store.read_int("s", "m", 99), 7);
    EXPECT_FALSE(store.read_bool("s", "t", true)); // 63 of them
    EXPECT_FALSE(store.read_bool("s", "k", false));
    string const text(2000, 'x');
    EXPECT_EQ(store.read_string("s", "k", text), text.left(1023));
    EXPECT_EQ(store.read_string("s", "k", "  as given\t"), "  as given\t");
    zel::ini_file elsewhere("D:\\settings.ini"); // a drive that this host has not
    elsewhere.write_int("s", "k", 1);
    EXPECT_EQ(elsewhere.read_int("s", "k", 7), 7);
    EXPECT_THROW(zel::ini_file(string(300, 'x')), std::length_error);
}

TEST_F(ini_file, is_counted_as_a_store_and_keeps_nothing)
{
    auto_ptr<zel::ini_file> const file(new zel::ini_file(zel::from_native(name).c_str()));
    auto_ptr<zel::iprofile> const same(file);
    EXPECT_EQ(file->ref_count(), 2U);
    same->write_int("s", "k", 1);
    put(name, "[s]\nk=2\n");
    EXPECT_EQ(same->read_int("s", "k", 0), 2);
    EXPECT_EQ(zel::to_native(file->get_path()), name);
}

TEST(sub_profile, joins_names_of_every_length)
{
    auto_ptr<recording_store> const below(new recording_store);
    for (unsigned int i = 0; i < 19 * 19; ++i) {
        string const front(i / 19, 'f'), section(i % 19, 's');
        zel::sub_profile(below, front).write_int(section, "k", 1);
        EXPECT_EQ(below->take(), "write_int " + front + "\\" + section + "/k=1;");
    }
    zel::sub_profile outer(new zel::sub_profile(below, "a"), "b");
    outer.write_int("c", "k", 1);
    EXPECT_EQ(below->take(), "write_int a\\b\\c/k=1;");
}

TEST(sub_profile, asks_for_the_name_in_the_derived_class_and_only_with_a_store)
{
    class dotted : public zel::sub_profile {
    public:
        using zel::sub_profile::sub_profile;
        int joined = 0;

    protected:
        string formPath(string const & section) override
        {
            ++joined;
            return path + "." + section;
        }
    };
    auto_ptr<recording_store> const below(new recording_store);
    dotted view(below, "a");
    view.write_int("b", "k", 1);
    EXPECT_EQ(below->take(), "write_int a.b/k=1;");
    dotted nowhere(nullptr, "a");
    EXPECT_THROW(nowhere.write_int("b", "k", 1), zel::memory_exception);
    EXPECT_THROW(nowhere.get_binary_size("b", "k"), zel::memory_exception);
    EXPECT_EQ(nowhere.joined, 0);
}

template <typename Store>
concept takes_a_text_for_a_truth_value = requires(Store store)
{
    store.write_bool("s", "k", "no");
}
|| requires(Store store) { store.read_bool("s", "k", "no"); };
static_assert(!takes_a_text_for_a_truth_value<zel::ini_file>);
static_assert(!takes_a_text_for_a_truth_value<zel::iprofile &>);
static_assert(!takes_a_text_for_a_truth_value<zel::cached_profile>);
static_assert(!takes_a_text_for_a_truth_value<zel::sub_profile>);

} // namespace
