// SPDX-License-Identifier: MIT
#include "zel/core/exception.h"

#include "zel/core/uncaught.h"
#include "zel/platform/last_error.h"
#include <exception>
#include <gtest/gtest.h>
#include <stdexcept>
#include <thread>
#include <type_traits>

namespace {

using zel::memory_exception;

// Composes with both kinds of extra text, as the classes of the other subsystems do.
struct composed : zel::exception {
    static constexpr char const * texts[] = {"first", "second "};
    composed(std::uint32_t type, auto extra)
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

TEST(exception, composes_its_message)
{
    char const * const null = nullptr;
    // clang-format off
    struct { zel::exception failure; std::uint32_t type; char const * message; } rows[] = {
        {composed(1, "text"), 1, "first text"},
        {composed(2, "text"), 2, "second  text"}, // the reason's own blank stays
        {composed(1, null), 1, "first"}, {composed(1, ""), 1, "first "},
        {composed(1, zel::string()), 1, "first "}, {composed(0, "text"), 0, " text"},
        {composed(2, zel::string("text")), 2, "second  text"}, {composed(3, "text"), 3, " text"},
        {composed(0xFFFFFFFF, zel::string("text")), 0xFFFFFFFF, " text"},
        {composed(7, null), 7, "Unknown Exception"}, {composed(5), 5, "Unknown Exception"},
        {{}, 0, "Unknown Exception"}, {{""}, 0, "Unknown Exception"}, {{9, "text"}, 9, "text"},
    };
    // clang-format on
    for (auto & row : rows) {
        SCOPED_TRACE(row.message);
        EXPECT_EQ(row.failure.get_message(), row.message);
        EXPECT_TRUE(row.failure.get_type() == row.type && row.failure.get_exc_type() == row.type);
        zel::exception copy;
        copy = row.failure;
        EXPECT_TRUE(copy.get_message() == row.message && copy.get_type() == row.type);
    }
}

TEST(memory_exception, has_a_text_for_each_reason)
{
    zel::string all;
    for (int type = 0; type < 7; ++type) { // the first and the last are none
        all += memory_exception(static_cast<memory_exception::exc_type>(type), "x").get_message();
    }
    EXPECT_EQ(all,
              " xZel Memory Exception: Null Pointer xZel Memory Exception: Allocation Failed x"
              "Zel Memory Exception: Not releated object x"
              "Zel Memory Exception: Invalid array boundary xZel Memory Exception: Resource x x");
}

TEST(uncaught_exceptions, end_the_program_with_their_message)
{
    auto const fail = [](auto const & failure) {
        zel::show_uncaught_exceptions();
        zel::show_uncaught_exceptions(); // changes nothing
        std::thread([&] { throw failure; }).join();
    };
    EXPECT_DEATH(fail(memory_exception(memory_exception::resource, "of 7")),
                 "zel: uncaught exception: Zel Memory Exception: Resource of 7\n");
    EXPECT_DEATH(fail(std::runtime_error("of the host")), "of the host"); // the handler before
}

TEST(get_last_error, describes_the_code_of_the_calling_thread)
{
    zel::platform::set_last_error(5);
    EXPECT_EQ(zel::get_last_error(), "Access is denied.\r\n");
    EXPECT_EQ(zel::platform::last_error(), 5U);
    zel::platform::set_last_error(0xABCDEF01);
    EXPECT_EQ(zel::get_last_error(), "");
    std::thread([] { EXPECT_EQ(zel::platform::last_error(), 0U); }).join();
}

TEST(char_buffer_copy, copies_exactly_the_count)
{
    char to[] = "....";
    zel::char_buffer_copy(to, "xxxx", 3);
    EXPECT_STREQ(to, "xxx.");
    zel::char_buffer_copy(nullptr, nullptr, 0);
}

} // namespace
