// SPDX-License-Identifier: MIT
#include "zel/files/dyn_lib.h"

#include "zel/core/exception.h"
#include "zel/files/native_path.h"

#include "tests/support/raised.h"
#include <gtest/gtest.h>

namespace {

using zel::dyn_lib;

int count_call(dyn_lib & library)
{
    return reinterpret_cast<int (*)()>(library.get_proc_addr("count_call"))();
}

TEST(dyn_lib, loads_calls_and_counts)
{
    zel::string const name = zel::from_native(ZEL_TEST_MODULE).c_str();
    dyn_lib first(name, true);
    EXPECT_EQ(message_raised<dyn_lib::exception>([&] { first.get_proc_addr("count_call"); }),
              "Cannot load file component  " + name);
    EXPECT_FALSE(first.loaded());
    first.load();
    first.load(); // no second one, as the single unload shows
    {
        dyn_lib second(ZEL_TEST_MODULE, false); // the host's own name, without a backslash
        second.load();
        EXPECT_EQ(count_call(first) * 10 + count_call(second), 12);
        first.unload();
        EXPECT_EQ(count_call(second), 3) << "held by the other object";
        second.unload();
        first.unload();
        EXPECT_FALSE(first.loaded() || second.loaded());
        first.load();
        EXPECT_EQ(count_call(first), 1) << "loaded anew";
        second.load();
    }
    first.unload();
    first.load();
    EXPECT_EQ(count_call(first), 2) << "left in the process by the second object";
    EXPECT_EQ(message_raised<dyn_lib::exception>([&] { first.get_proc_addr("nothing"); }),
              "Zel Dyn_Lib Exception: exported procedure not found  " + name);
    EXPECT_NE(zel::get_last_error().find("nothing"), zel::string::npos);
    EXPECT_TRUE(first.loaded());
}

TEST(dyn_lib, keeps_the_reason_of_a_failure)
{
    for (zel::string const & name :
         {zel::string("C:\\no\\such.so"), zel::string("D:\\x.so"), zel::string(),
          zel::string("libm.so.6\0x", 11), zel::string("libno-such-module.so")}) {
        dyn_lib missing(name, true);
        EXPECT_EQ(type_raised<dyn_lib::exception>([&] { missing.load(); }),
                  dyn_lib::exception::cannot_load);
        EXPECT_FALSE(missing.loaded() || zel::get_last_error().empty());
    }
    EXPECT_NE(zel::get_last_error().find("libno-such-module.so"), zel::string::npos);
}

} // namespace
