// SPDX-License-Identifier: MIT
#include "zel/text/buffer.h"

#include "tests/support/raised.h"
#include "zel/core/exception.h"
#include <compare>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <vector>

namespace {

using zel::buffer;
using bytes = std::vector<unsigned char>;

buffer make(bytes const & content)
{
    return buffer(content.data(), static_cast<std::uint32_t>(content.size()));
}

bytes content(buffer const & b) { return bytes(b.data(), b.data() + b.size()); }

TEST(buffer, orders_by_size_and_then_downwards)
{
    bytes const ascending[] = {{}, {9}, {2}, {1}, {2, 0}, {1, 200}, {1, 2}, {1, 2, 3}};
    for (auto const & left : ascending) {
        for (auto const & right : ascending) {
            auto const order = &left <=> &right;
            buffer const a = make(left);
            buffer const b = make(right);
            EXPECT_TRUE((a < b) == (order < 0) && (a <= b) == (order <= 0));
            EXPECT_TRUE((a > b) == (order > 0) && (a >= b) == (order >= 0));
            EXPECT_TRUE((a == b) == (order == 0) && (a != b) == (order != 0));
        }
    }
}

TEST(buffer, owns_no_block_while_empty)
{
    buffer b(nullptr, 0);
    EXPECT_EQ(b.data(), nullptr);
    b.clear();
    b.append(nullptr, 0);
    b.insert(5, nullptr, 0);
    b.write(0, nullptr, 0);
    b += b;
    EXPECT_EQ(buffer(b).data(), nullptr);
    b = buffer(3, 'x');
    EXPECT_TRUE(b.empty());
    unsigned char const * const before = b.data();
    b = *&b;
    EXPECT_EQ(b.data(), before);
    EXPECT_EQ(buffer(std::move(b)).data(), before);
    b = buffer(5, 'y');
    b = buffer();
    EXPECT_EQ(b.size(), 0U);
}

TEST(buffer, refuses_sizes_that_would_wrap)
{
    bytes const ten(10, 'a');
    unsigned char const byte = 'b';
    buffer b = make(ten);
    zel::string const refused = "Zel Memory Exception: Allocation Failed buffer::";
    for (std::uint32_t const count : {0xFFFFFFFFU, 0xFFFFFFF6U, 0xFFFFFFF0U}) {
        std::function<void()> const grow[]
            = {[&] { b.append(&byte, count); }, [&] { b.append(b.data(), count); },
               [&] { b.insert(3, &byte, count); }, [&] { b.resize(count); },
               [&] { b.resize(count, 'c'); }};
        for (auto const & call : grow) {
            EXPECT_EQ(message_raised<zel::memory_exception>(call), refused + "reallocate=")
                << &call - grow;
            ASSERT_EQ(content(b), ten);
        }
        EXPECT_EQ(message_raised<zel::memory_exception>([&] { buffer(count, 'c'); }),
                  refused + "allocate");
        EXPECT_EQ(message_raised<zel::memory_exception>([&] { buffer(&byte, count); }),
                  refused + "allocate");
        zel::string const outside = "Zel Memory Exception: Invalid array boundary buffer::";
        EXPECT_EQ(message_raised<zel::memory_exception>([&] { b.write(9, &byte, count); }),
                  outside + "write");
        EXPECT_EQ(message_raised<zel::memory_exception>([&] { delete b.submem(9, count); }),
                  outside + "submem");
    }
}

} // namespace
