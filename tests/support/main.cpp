// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

// By hand or by ctest, on whatever machine: a zone with daylight-saving time and an odd offset, so
// that nothing passes by being UTC, and the locales that the build made.
int main(int argc, char ** argv)
{
    ::setenv("TZ", "NST3:30NDT,M3.2.0,M11.1.0", 1);
    ::tzset();
    ::setenv("LOCPATH", ZEL_TEST_LOCALES, 1);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
