// SPDX-License-Identifier: MIT
#include "zel/profile/ini_file.h"

#include "tests/support/scratch_folder.h"
#include "zel/core/auto_ptr.h"
#include "zel/files/native_path.h"
#include "zel/profile/cached_profile.h"
#include "zel/profile/sub_profile.h"
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <stdexcept>

namespace {

constexpr std::int32_t lowest = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t highest = std::numeric_limits<std::int32_t>::max();

class ini_file : public testing::Test {
protected:
    scratch_folder folder;
    std::string const name = folder.file("settings.ini");
    zel::ini_file store{zel::from_native(name).c_str()};
};

TEST_F(ini_file, writes_the_texts_that_are_promised)
{
    unsigned char block[] = {0xAB, 0x00, 0xFF};
    store.write_string("app\\view", "title", "plain text");
    store.write_int("numbers", "low", lowest);
    store.write_int("numbers", "high", highest);
    store.write_bool("flags", "on", true);
    store.write_bool("flags", "off", false);
    store.write_by_index_string("list", "item", -7, "below");
    store.write_binary("blocks", "some", block, 3);
    store.write_binary("blocks", "none", nullptr, 0);
    store.write_string("", "", "empty names");
    EXPECT_EQ(get(name),
              "[app\\view]\ntitle=plain text\n[numbers]\nlow=-2147483648\nhigh=2147483647\n"
              "[flags]\non=true\noff=false\n[list]\nitem-7=below\n"
              "[blocks]\nsome=AB00FFAA\nnone=00\n[]\n=empty names\n");
    EXPECT_EQ(store.read_string("", "", "x") + store.read_by_index_string("list", "item", -7),
              "empty namesbelow");
    EXPECT_EQ(store.read_int("numbers", "low", 0), lowest);
    EXPECT_TRUE(store.read_bool("flags", "on", false) && !store.read_bool("flags", "off", true));
    unsigned char copy[4] = {1, 2, 3, 4};
    store.read_binary("blocks", "some", copy, store.get_binary_size("blocks", "some"));
    EXPECT_EQ(std::memcmp(copy, "\xAB\0\xFF\4", 4), 0);
    store.read_binary("blocks", "some", copy, 2); // not its size: left alone
    EXPECT_EQ(copy[0], 0xAB);
    EXPECT_EQ(store.get_binary_size("blocks", "none"), 0U);
    store.write_string("flags", "two\nlines", "lost");
    store.write_binary("blocks", "none", nullptr, 1);
    EXPECT_EQ(store.read_string("blocks", "none", "gone"), "gone");
}

TEST_F(ini_file, looks_at_the_first_bytes_of_numbers_and_truth_values)
{
    put(name,
        std::string("[s]\nn=").append(126, '0') + "12\nt=true" + std::string(80, ' ') + "x\n");
    EXPECT_EQ(store.read_int("s", "n", 99), 1); // 127 of them
    EXPECT_FALSE(store.read_bool("s", "t", true)); // 63 of them
    put(name, "[s]\nn='\t 7'\n");
    EXPECT_EQ(store.read_int("s", "n", 99), 7);
}

TEST_F(ini_file, gives_the_default_for_what_is_missing)
{
    EXPECT_EQ(store.read_string("s", "k", "  as given\t"), "  as given\t");
    zel::string const text(2000, 'x');
    EXPECT_EQ(store.read_string("s", "k", text), text.left(1023));
    zel::ini_file elsewhere("D:\\settings.ini"); // a drive that this host has not
    elsewhere.write_int("s", "k", 1);
    EXPECT_EQ(elsewhere.read_int("s", "k", 7), 7);
    EXPECT_THROW(zel::ini_file(zel::string(300, 'x')), std::length_error);
}

TEST_F(ini_file, is_counted_as_a_store)
{
    zel::auto_ptr<zel::ini_file> const file(new zel::ini_file(zel::from_native(name).c_str()));
    zel::auto_ptr<zel::iprofile> const same(file);
    EXPECT_EQ(file->ref_count(), 2U);
    same->write_int("s", "k", 1);
    put(name, "[s]\nk=2\n"); // nothing is kept
    EXPECT_EQ(same->read_int("s", "k", 0), 2);
    EXPECT_EQ(zel::to_native(file->get_path()), name);
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
