// SPDX-License-Identifier: MIT
#include "zel/profile/sub_profile.h"

#include "tests/profile/recording_store.h"
#include "tests/support/property.h"
#include "zel/core/exception.h"
#include <gtest/gtest.h>

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

} // namespace
