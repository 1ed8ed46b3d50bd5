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

using numbered = std::list<std::pair<std::int32_t, zel::string>>;
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

TEST_F(ini_file, reads_numbers_and_truth_values_from_any_text)
{
    // clang-format off
    struct { char const * text; std::int32_t number; bool truth; } const rows[] = {
        {"12abc", 12, false}, {"abc", 0, false}, {"", 0, false}, {"-5", -5, false}, {"+5", 5, false},
        {"'\t 7'", 7, false}, {"- 5", 0, false}, {"0x10", 0, false}, {"1", 1, false}, {"yes", 0, false},
        {"true", 0, true}, {"TRUE", 0, true}, {"tRue", 0, true}, {"true.", 0, false}, {"'true '", 0, false},
        {"2147483648", highest, false}, {"-2147483649", lowest, false}, {"99999999999999999999", highest, false},
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(row.text);
        put(name, std::string("[s]\nk1=") + row.text);
        EXPECT_EQ(store.read_int("s", "k1", 99), row.number);
        EXPECT_EQ(store.read_by_index_int("s", "k", 1), row.number);
        EXPECT_EQ(store.read_bool("s", "k1", true), row.truth);
    }
    // 127 bytes are looked at for a number and 63 for a truth value.
    put(name,
        std::string("[s]\nn=").append(126, '0') + "12\nt=true" + std::string(80, ' ') + "x\n");
    EXPECT_EQ(store.read_int("s", "n", 99), 1);
    EXPECT_FALSE(store.read_bool("s", "t", true));
}

TEST_F(ini_file, gives_the_default_for_what_is_missing)
{
    put(name, "[s]\nempty=\n");
    for (char const * const section : {"s", "other"}) {
        EXPECT_EQ(store.read_string(section, "k", "  as given\t"), "  as given\t");
        EXPECT_EQ(store.read_int(section, "k", -12), -12);
        EXPECT_TRUE(store.read_bool(section, "k", true));
        EXPECT_EQ(store.read_by_index_string(section, "k", 1), "");
        EXPECT_EQ(store.read_by_index_int(section, "k", 1), 0);
        EXPECT_EQ(store.get_binary_size(section, "k"), 0U);
    }
    EXPECT_EQ(store.read_string("s", "empty", "x"), "");
    EXPECT_EQ(store.read_int("s", "empty", 5), 0);
    EXPECT_FALSE(store.read_bool("s", "empty", true));
    zel::ini_file elsewhere("D:\\settings.ini"); // a drive that this host has not
    elsewhere.write_int("s", "k", 1);
    EXPECT_EQ(elsewhere.read_int("s", "k", 7), 7);
    EXPECT_THROW(zel::ini_file(zel::string(300, 'x')), std::length_error);
}

TEST_F(ini_file, cuts_what_it_reads_and_not_what_it_writes)
{
    zel::string const text(2000, 'x');
    store.write_string("s", "k1", text);
    EXPECT_EQ(get(name), "[s]\nk1=" + text + "\n");
    EXPECT_EQ(store.read_string("s", "k1", ""), text.left(1023));
    EXPECT_EQ(store.read_string("s", "none", text), text.left(1023));
    EXPECT_EQ(store.read_by_index_string("s", "k", 1), text.left(1023));
}

TEST_F(ini_file, reads_numbered_lists)
{
    // clang-format off
    struct { char const * list; char separator; numbered result; } const rows[] = {
        {"7,3,7", ',', {{7, "seven"}, {3, "three"}, {7, "seven"}}}, {"3,,7", ',', {{3, "three"}}}, {",3", ',', {}}, {"", ',', {}},
        {"3,7,", ',', {{3, "three"}, {7, "seven"}}}, {" 3 , -1", ',', {{3, "three"}, {-1, "below"}}},
        {"007;abc", ';', {{7, "seven"}, {0, ""}}}, {"3,7", ';', {{3, "three"}}},
    };
    // clang-format on
    for (auto const & row : rows) {
        put(name,
            std::string("[s]\nlist=") + row.list + "\nname3=three\nname7=seven\nname-1=below\n");
        numbered list{{1, "from before"}};
        store.read_multiple("s", "list", row.separator, "name", list);
        EXPECT_EQ(list, row.result) << row.list;
    }
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
