// SPDX-License-Identifier: MIT
#include "zel/text/format.h"

#include <climits>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>

namespace {

std::size_t length_of(char const * format, ...)
{
    std::va_list arguments;
    va_start(arguments, format);
    try {
        std::size_t const length = zel::format_and_drop(format, arguments);
        va_end(arguments);
        return length;
    } catch (std::length_error &) {
        va_end(arguments);
        return SIZE_MAX;
    }
}

// Of texts that are only counted, so that nobody needs gigabytes to see where they end.
TEST(format, ends_at_the_longest_length_of_the_runtime)
{
    std::string const long_text(3000, 'x');
    // clang-format off
    struct { int width; char const * tail; std::size_t length; } const rows[] = {
        {1, "", 1}, {5000, long_text.c_str(), 8000}, {INT_MAX - 2, "ab", INT_MAX},
        {INT_MAX - 2, "abc", SIZE_MAX}, // the tail waits on the stack while the rest is spilt
        {INT_MAX - 2, long_text.c_str(), SIZE_MAX}, {INT_MAX, "", INT_MAX},
    };
    // clang-format on
    for (auto const & row : rows) {
        EXPECT_EQ(length_of("%*d%s", row.width, 1, row.tail), row.length) << row.width << row.tail;
    }
    EXPECT_EQ(length_of("%*d%*d", INT_MAX, 1, INT_MAX, 2), SIZE_MAX);
}

} // namespace
