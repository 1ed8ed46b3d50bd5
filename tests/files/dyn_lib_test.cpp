// SPDX-License-Identifier: MIT
#include "zel/files/dyn_lib.h"

#include "tests/support/raised.h"
#include "zel/core/exception.h"
#include "zel/files/native_path.h"

#include <gtest/gtest.h>

namespace {

using zel::dyn_lib;

int count_call(dyn_lib & library)
{
    return reinterpret_cast<int (*)()>(library.get_proc_addr("count_call"))();
}

std::string message(dyn_lib & library, char const * procedure, std::uint32_t type)
{
    auto const call = [&] {
        procedure == nullptr ? library.load() : static_cast<void>(library.get_proc_addr(procedure));
    };
    EXPECT_EQ(type_raised<dyn_lib::exception>(call), type);
    return message_raised<dyn_lib::exception>(call);
}

TEST(dyn_lib, loads_calls_and_counts)
{
    zel::string const name = zel::from_native(ZEL_TEST_MODULE).c_str();
    dyn_lib first(name, true);
    EXPECT_FALSE(first.loaded());
    EXPECT_EQ(message(first, "count_call", dyn_lib::exception::cannot_load),
              "Cannot load file component "
              " " + name);
    first.load();
    first.load(); // no second one, as the single unload shows
    {
        dyn_lib second(ZEL_TEST_MODULE, false); // the host's own name, without a backslash
        second.load();
        EXPECT_EQ(count_call(first), 1);
        EXPECT_EQ(count_call(second), 2);
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
    EXPECT_EQ(message(first, "nothing", dyn_lib::exception::procedure_not_found),
              "Zel Dyn_Lib Exception: exported procedure not found  " + name);
    EXPECT_NE(zel::get_last_error().find("nothing"), zel::string::npos);
    EXPECT_TRUE(first.loaded());
}

TEST(dyn_lib, keeps_the_reason_of_a_failure)
{
    for (char const * name : {"libno-such-module.so", "C:\\no\\such.so", "D:\\x.so", ""}) {
        dyn_lib missing(name, true);
        EXPECT_EQ(message(missing, nullptr, dyn_lib::exception::cannot_load),
                  std::string("Cannot load file component  ") + name);
        EXPECT_FALSE(missing.loaded());
        EXPECT_FALSE(zel::get_last_error().empty());
    }
    dyn_lib missing("libno-such-module.so", true);
    message(missing, nullptr, dyn_lib::exception::cannot_load);
    EXPECT_NE(zel::get_last_error().find("libno-such-module.so"), zel::string::npos);
    dyn_lib cut(zel::string("libm.so.6\0x", 11), true);
    EXPECT_NE(message(cut, nullptr, dyn_lib::exception::cannot_load), "");
}

} // namespace
