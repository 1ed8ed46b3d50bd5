// SPDX-License-Identifier: MIT
#include "zel/core/exception.h"

#include "zel/platform/last_error.h"
#include <exception>
#include <gtest/gtest.h>
#include <thread>
#include <type_traits>

namespace {

using zel::memory_exception;

// Composes with both kinds of extra text, as the classes of the other subsystems do.
struct composed : zel::exception {
    static constexpr char const * texts[] = {"first", "second "};
    template <typename Text>
    composed(std::uint32_t type, Text extra)
        : exception(type, texts, extra)
    {
    }
    explicit composed(std::uint32_t type)
        : exception(type)
    {
    }
};

static_assert(std::has_virtual_destructor_v<zel::exception>);
static_assert(!std::is_base_of_v<std::exception, zel::exception>);
static_assert(std::is_base_of_v<zel::exception, memory_exception>);

TEST(exception, composes_its_message)
{
    char const * const null = nullptr;
    // clang-format off
    struct { composed failure; std::uint32_t type; char const * message; } rows[] = {
        {{1, "text"}, 1, "first text"},
        {{2, "text"}, 2, "second  text"}, // the reason's own blank stays
        {{1, null}, 1, "first"}, {{1, ""}, 1, "first "}, {{1, zel::string()}, 1, "first "},
        {{2, zel::string("text")}, 2, "second  text"}, {{0, "text"}, 0, " text"},
        {{3, "text"}, 3, " text"}, {{0xFFFFFFFF, zel::string("text")}, 0xFFFFFFFF, " text"},
        {{7, null}, 7, "Unknown Exception"}, {composed(5), 5, "Unknown Exception"},
    };
    // clang-format on
    for (auto & row : rows) {
        SCOPED_TRACE(row.message);
        EXPECT_EQ(row.failure.get_message(), row.message);
        EXPECT_EQ(row.failure.get_type(), row.type);
        EXPECT_EQ(row.failure.get_exc_type(), row.type);
    }
}

TEST(exception, tells_what_it_was_given)
{
    zel::exception none, empty(""), both(9, "text");
    EXPECT_EQ(none.get_type(), 0U);
    EXPECT_EQ(none.get_message(), "Unknown Exception");
    EXPECT_EQ(empty.get_message(), "Unknown Exception");
    EXPECT_EQ(both.get_type(), 9U);
    EXPECT_EQ(both.get_message(), "text");
    zel::exception & target = none;
    target = memory_exception(memory_exception::resource, "x");
    EXPECT_EQ(none.get_type(), 5U);
    EXPECT_EQ(none.get_message(), "Zel Memory Exception: Resource x");
}

TEST(memory_exception, has_a_text_for_each_reason)
{
    char const * const messages[] = {
        " x", // 0 is no reason, nor is what lies behind the last one
        "Zel Memory Exception: Null Pointer x",
        "Zel Memory Exception: Allocation Failed x",
        "Zel Memory Exception: Not releated object x",
        "Zel Memory Exception: Invalid array boundary x",
        "Zel Memory Exception: Resource x",
        " x",
    };
    for (std::uint32_t type = 0; type < std::size(messages); ++type) {
        try {
            throw memory_exception(static_cast<memory_exception::exc_type>(type), "x");
        } catch (zel::exception & failure) {
            EXPECT_EQ(failure.get_message(), messages[type]);
            EXPECT_EQ(failure.get_type(), type);
            EXPECT_NE(dynamic_cast<memory_exception *>(&failure), nullptr);
        }
    }
}

TEST(get_last_error, describes_the_code_of_the_calling_thread)
{
    // clang-format off
    struct { std::uint32_t code; char const * text; } const rows[] = {
        {0, "The operation completed successfully.\r\n"},
        {2, "The system cannot find the file specified.\r\n"}, {5, "Access is denied.\r\n"},
        {6, "The handle is invalid.\r\n"},
        {183, "Cannot create a file when that file already exists.\r\n"},
        {298, "Too many posts were made to a semaphore.\r\n"}, {0xABCDEF01, ""},
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(row.code);
        zel::platform::set_last_error(row.code);
        EXPECT_EQ(zel::get_last_error(), row.text);
        EXPECT_EQ(zel::platform::last_error(), row.code);
    }
    std::thread([] { EXPECT_EQ(zel::platform::last_error(), 0U); }).join();
}

TEST(char_buffer_copy, copies_exactly_the_count)
{
    for (unsigned int count = 0; count < 20; ++count) {
        zel::string to(20, '.');
        zel::string from(20, '\0');
        zel::char_buffer_copy(to.data(), from.data(), count);
        EXPECT_EQ(to, zel::string(count, '\0') + zel::string(20 - count, '.'));
    }
    zel::char_buffer_copy(nullptr, nullptr, 0);
}

} // namespace
