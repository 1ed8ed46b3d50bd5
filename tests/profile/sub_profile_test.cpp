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
    // clang-format off
    struct { char const * path, * section, * joined; } const rows[]
        = {{"a", "b", "a\\b"}, {"a", "", "a\\"}, {"", "b", "\\b"}, {"a\\", "b", "a\\\\b"}};
    // clang-format on
    for (auto const & row : rows) {
        zel::sub_profile view(below, row.path);
        string const s(row.section), at = string(" ") + row.joined + "/";
        char bytes[] = "...";
        numbered list;
        EXPECT_EQ(view.read_string(s, "k", "d"), "text of k");
        EXPECT_EQ(view.read_int(s, "k", 1), 42);
        EXPECT_TRUE(view.read_bool(s, "k", false));
        EXPECT_EQ(view.read_by_index_string(s, "k", 2), "indexed");
        EXPECT_EQ(view.read_by_index_int(s, "k", 3), 43);
        EXPECT_EQ(view.get_binary_size(s, "k"), 3U);
        EXPECT_EQ(below->take(),
                  "read_string" + at + "k=d;read_int" + at + "k=1;read_bool" + at
                      + "k=false;read_by_index_string" + at + "k=2;read_by_index_int" + at
                      + "k=3;get_binary_size" + at + "k=;");
        view.read_binary(s, "k", bytes, 2);
        view.read_multiple(s, "k", ';', "base", list);
        view.write_string(s, "k", "v");
        view.write_int(s, "k", 4);
        view.write_bool(s, "k", true);
        view.write_by_index_string(s, "k", 5, "v");
        view.write_binary(s, "k", bytes, 3);
        EXPECT_EQ(list, (numbered{{1, "one"}}));
        EXPECT_EQ(below->take(),
                  "read_binary" + at + "k=2;read_multiple" + at + "k=base;;write_string" + at
                      + "k=v;write_int" + at + "k=4;write_bool" + at
                      + "k=true;write_by_index_string" + at + "k=5v;write_binary" + at + "k=xy.;");
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

} // namespace
