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
    // 0 is no reason, nor is what lies behind the last one.
    char const * const reasons[] = {"",
                                    "Null Pointer",
                                    "Allocation Failed",
                                    "Not releated object",
                                    "Invalid array boundary",
                                    "Resource",
                                    ""};
    for (std::uint32_t type = 0; type < std::size(reasons); ++type) {
        bool const is_known = *reasons[type] != '\0';
        EXPECT_EQ(
            memory_exception(static_cast<memory_exception::exc_type>(type), "x").get_message(),
            (is_known ? "Zel Memory Exception: " : "") + zel::string(reasons[type]) + " x");
    }
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
    // clang-format off
    struct { std::uint32_t code; char const * text; } const rows[] = {
        {0, "The operation completed successfully.\r\n"},
        {2, "The system cannot find the file specified.\r\n"}, {5, "Access is denied.\r\n"},
        {183, "Cannot create a file when that file already exists.\r\n"},
        {1816, "Not enough quota is available to process this command.\r\n"}, {0xABCDEF01, ""},
    };
    // clang-format on
    for (auto const & row : rows) {
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
        zel::char_buffer_copy(to.data(), zel::string(20, 'x').data(), count);
        EXPECT_EQ(to, zel::string(count, 'x') + zel::string(20 - count, '.'));
    }
    zel::char_buffer_copy(nullptr, nullptr, 0);
}

} // namespace
