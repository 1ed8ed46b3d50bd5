// SPDX-License-Identifier: MIT
#include "zel/profile/sub_profile.h"

#include "tests/profile/recording_store.h"
#include "zel/core/exception.h"
#include <gtest/gtest.h>

namespace {

using zel::auto_ptr;
using zel::string;
using numbered = std::list<std::pair<std::int32_t, string>>;

TEST(sub_profile, hands_every_operation_on_with_the_joined_section)
{
    auto_ptr<recording_store> const below(new recording_store);
    zel::sub_profile view(below, "a\\");
    string const s("b");
    char bytes[] = "...";
    numbered list;
    EXPECT_EQ(view.read_string(s, "k", "d"), "text of k");
    EXPECT_EQ(view.read_int(s, "k", 1), 42);
    EXPECT_TRUE(view.read_bool(s, "k", false));
    EXPECT_EQ(view.read_by_index_string(s, "k", 2), "indexed");
    EXPECT_EQ(view.read_by_index_int(s, "k", 3), 43);
    EXPECT_EQ(view.get_binary_size(s, "k"), 3U);
    view.read_binary(s, "k", bytes, 2);
    view.read_multiple(s, "k", ';', "base", list);
    EXPECT_EQ(list, (numbered{{1, "one"}}));
    view.write_string(s, "k", "v");
    view.write_int(s, "k", 4);
    view.write_bool(s, "k", true);
    view.write_by_index_string(s, "k", 5, "v");
    view.write_binary(s, "k", bytes, 3);
    EXPECT_EQ(below->take().replace("a\\\\b/k", "@"),
              "read_string @=d;read_int @=1;read_bool @=false;read_by_index_string @=2;"
              "read_by_index_int @=3;get_binary_size @=;read_binary @=2;read_multiple @=base;;"
              "write_string @=v;write_int @=4;write_bool @=true;write_by_index_string @=5v;"
              "write_binary @=xy.;");
    zel::sub_profile(below, "a").write_int("", "k", 1);
    zel::sub_profile(below, "").write_int("b", "k", 1);
    EXPECT_EQ(below->take(), "write_int a\\/k=1;write_int \\b/k=1;");
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

} // namespace
