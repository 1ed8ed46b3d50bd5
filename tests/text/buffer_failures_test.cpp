// SPDX-License-Identifier: MIT
// Every allocation of a buffer fails in turn; the linker puts the functions below in its way.

#include "zel/core/exception.h"
#include "zel/text/buffer.h"

#include "tests/support/raised.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

// How many calls succeed before one fails; all of them while it is negative.
thread_local int granted = -1;

bool may_allocate() { return granted < 0 || granted-- > 0; }

} // namespace

extern "C" {
void * __real_malloc(std::size_t size);
void * __real_realloc(void * block, std::size_t size);
void * __wrap_malloc(std::size_t size) { return may_allocate() ? __real_malloc(size) : nullptr; }
void * __wrap_realloc(void * block, std::size_t size)
{
    return may_allocate() ? __real_realloc(block, size) : nullptr;
}
}

namespace {

using zel::buffer;

unsigned char const digits[] = "0123456789";

/// The message of a `memory_exception`, or an empty text; `attempt` runs with `count` allocations.
template <typename function> zel::string failure(int count, function && attempt)
{
    granted = count;
    zel::string const raised = message_raised<zel::memory_exception>(attempt);
    granted = -1;
    return raised;
}

TEST(buffer_failures, leave_the_bytes_and_the_block_as_they_were)
{
    // clang-format off
    struct { char const * change; void (*run)(buffer & b, buffer const & other); } const rows[] = {
        {"append 1",    [](buffer & b, buffer const & other) { b.append(other.data(), 1); }},
        {"+=",          [](buffer & b, buffer const & other) { b += other; }},
        {"insert",      [](buffer & b, buffer const & other) { b.insert(3, other.data(), 5); }},
        {"resize",      [](buffer & b, buffer const &) { b.resize(5000); }},
        {"shrink",      [](buffer & b, buffer const &) { b.resize(2); }},
        {"remove",      [](buffer & b, buffer const &) { b.remove(3, 2); }},
        {"remove 700",  [](buffer & b, buffer const &) { b.remove(3, 700); }},
        {"remove tail", [](buffer & b, buffer const &) { b.remove(3); }},
        {"assign",      [](buffer & b, buffer const & other) { b = other; }},
    };
    // clang-format on
    buffer const other(2000, 'o');
    for (auto const & row : rows) {
        SCOPED_TRACE(row.change);
        buffer b(1000, 'x');
        b.write(0, digits, 10);
        buffer const before(b);
        unsigned char const * const block = b.data();
        EXPECT_EQ(failure(0, [&] { row.run(b, other); }),
                  "Zel Memory Exception: Allocation Failed buffer::reallocate=");
        EXPECT_TRUE(b == before);
        EXPECT_EQ(b.data(), block);
        row.run(b, other); // and it works again
        EXPECT_FALSE(b == before);
    }
}

TEST(buffer_failures, leave_no_half_made_object)
{
    buffer const source(digits, 10);
    zel::string const refused = "Zel Memory Exception: Allocation Failed buffer::allocate";
    EXPECT_EQ(failure(0, [&] { buffer b(digits, 10); }), refused);
    EXPECT_EQ(failure(0, [&] { buffer b(10, 'x'); }), refused);
    EXPECT_EQ(failure(0, [&] { buffer b(source); }), refused);
    EXPECT_EQ(failure(0, [&] { delete source.submem(0, 9); }), refused);
    EXPECT_EQ(failure(1, [&] { delete source.submem(0, 9); }), "");
}

} // namespace
