// SPDX-License-Identifier: MIT
#include "zel/text/buffer.h"

#include "tests/support/raised.h"
#include "zel/core/auto_ptr.h"
#include "zel/core/exception.h"
#include <algorithm>
#include <compare>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

using zel::buffer;
using bytes = std::vector<unsigned char>;

buffer make(bytes const & content)
{
    return buffer(content.data(), static_cast<std::uint32_t>(content.size()));
}

bytes content(buffer const & b) { return bytes(b.data(), b.data() + b.size()); }

// Random operations against a vector: contents, sizes and refusals.
TEST(buffer, behaves_as_an_array_with_checked_spans)
{
    std::mt19937 engine(1);
    auto const random = [&] { return static_cast<std::uint32_t>(engine()); };
    buffer b;
    bytes model;
    auto const expect_refused_unless = [](bool good, char const * member, auto && call) {
        zel::string const refused = "Zel Memory Exception: Invalid array boundary buffer::";
        EXPECT_EQ(message_raised<zel::memory_exception>(call),
                  good ? zel::string() : refused + member);
    };
    for (int step = 0; step < 100'000; ++step) {
        auto const size = static_cast<std::uint32_t>(model.size());
        std::uint32_t const position = random() % (size + 3);
        std::uint32_t const count = random() % 16 == 0 ? buffer::c_npos - random() % 3
                                                       : random() % (random() % 8 == 0 ? 900 : 5);
        std::uint32_t const given = count % 1000; // of what has to be really there
        bytes source(given);
        std::generate(source.begin(), source.end(), [&] { return random() % 4; });
        bool const inside = std::uint64_t{position} + count <= size;
        auto const at = model.begin() + static_cast<std::ptrdiff_t>(std::min(position, size));
        auto const end = inside ? at + static_cast<std::ptrdiff_t>(count) : model.end();
        switch (random() % 9) {
        case 0:
            b.append(source.data(), given);
            model.insert(model.end(), source.begin(), source.end());
            break;
        case 1:
            b.insert(position, source.data(), given);
            model.insert(at, source.begin(), source.end());
            break;
        case 2:
            expect_refused_unless(position < size, "remove", [&] { b.remove(position, count); });
            model.erase(at, position < size ? end : at);
            break;
        case 3:
            expect_refused_unless(inside, "write", [&] {
                b.write(position, source.data(), inside ? count : count | 4096);
            });
            std::copy_n(source.begin(), inside ? count : 0, at);
            break;
        case 4:
            expect_refused_unless(position < size, "find", [&] {
                auto const hit = std::search(at, model.end(), source.begin(), source.end());
                EXPECT_EQ(b.find(source.data(), given, position),
                          given == 0 || hit == model.end() ? buffer::c_npos : hit - model.begin());
            });
            break;
        case 5:
            expect_refused_unless(std::uint64_t{position} + count < size, "submem", [&] {
                zel::auto_ptr<buffer> const part(b.submem(position, count));
                EXPECT_TRUE(content(*part) == bytes(at, end) && part->ref_count() == 1);
            });
            break;
        case 6:
            b.resize(given, 7);
            model.resize(given, 7);
            break;
        case 7:
            b += b;
            source = model;
            model.insert(model.end(), source.begin(), source.end());
            break;
        default:
            b = make(source);
            model = source;
        }
        if (model.size() > 4000) {
            b.resize(10);
            model.resize(10);
        }
        ASSERT_EQ(content(b), model) << "step " << step;
    }
}

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
    EXPECT_FALSE(b.empty());
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
    buffer moved(std::move(b));
    EXPECT_EQ(moved.data(), before);
    b = moved;
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
    }
}

} // namespace
