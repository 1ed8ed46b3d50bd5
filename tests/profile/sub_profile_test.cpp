// SPDX-License-Identifier: MIT
#include "zel/profile/sub_profile.h"

#include "tests/profile/recording_store.h"
#include "zel/core/exception.h"
#include <gtest/gtest.h>

namespace {

using zel::auto_ptr;
using zel::string;

// What the run of the stacked stores does not call.
TEST(sub_profile, hands_operations_on_with_the_joined_section)
{
    auto_ptr<recording_store> const below(new recording_store);
    zel::sub_profile view(below, "a\\");
    char bytes[] = "...";
    EXPECT_EQ(view.read_by_index_string("b", "k", 2), "indexed");
    EXPECT_EQ(view.read_by_index_int("b", "k", 3), 43);
    view.read_binary("b", "k", bytes, 2);
    view.write_by_index_string("b", "k", 5, "v");
    view.write_binary("b", "k", bytes, 3);
    view.read_bool("b", "k", false);
    EXPECT_EQ(below->take().replace("a\\\\b/k", "@"),
              "read_by_index_string @=2;read_by_index_int @=3;read_binary @=2;"
              "write_by_index_string @=5v;write_binary @=xy.;read_bool @=false;");
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

} // namespace
