// SPDX-License-Identifier: MIT
#include "zel/text/buffer.h"

#include "tests/support/raised.h"
#include "zel/core/exception.h"
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace {

using zel::buffer;
using bytes = std::vector<unsigned char>;

buffer make(bytes const & content)
{
    return buffer(content.data(), static_cast<std::uint32_t>(content.size()));
}

bytes content(buffer const & b) { return bytes(b.data(), b.data() + b.size()); }

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
    unsigned char const byte = 'b';
    bytes const ten(10, 'a');
    buffer b = make(ten);
    for (std::uint32_t const count : {0xFFFFFFFFU, 0xFFFFFFF6U, 0xFFFFFFF0U}) {
        std::pair<char const *, std::function<void()>> const refused[]
            = {{"Allocation Failed buffer::reallocate=", [&] { b.append(&byte, count); }},
               {"Allocation Failed buffer::reallocate=", [&] { b.append(b.data(), count); }},
               {"Allocation Failed buffer::reallocate=", [&] { b.insert(3, &byte, count); }},
               {"Allocation Failed buffer::reallocate=", [&] { b.resize(count); }},
               {"Allocation Failed buffer::reallocate=", [&] { b.resize(count, 'c'); }},
               {"Allocation Failed buffer::allocate", [&] { buffer(count, 'c'); }},
               {"Allocation Failed buffer::allocate", [&] { buffer(&byte, count); }},
               {"Invalid array boundary buffer::write", [&] { b.write(9, &byte, count); }},
               {"Invalid array boundary buffer::submem", [&] { delete b.submem(9, count); }}};
        for (auto const & [reason, call] : refused) {
            EXPECT_EQ(message_raised<zel::memory_exception>(call),
                      zel::string("Zel Memory Exception: ") + reason);
            ASSERT_EQ(content(b), ten);
        }
    }
}

} // namespace
