// SPDX-License-Identifier: MIT
#include "zel/log/logger.h"

#include "tests/support/allocations.h"
#include "tests/support/property.h"
#include "zel/core/exception.h"
#include <gtest/gtest.h>
#include <stdexcept>

extern "C" property logger_property;

namespace {

using zel::logger;

// Keeps every output as "type|group|text|url", with "-" for the group of a plain message.
class recorder : public logger {
public:
    std::vector<std::string> lines;
    bool fail = false;

    std::string counters() const
    {
        return std::to_string(get_info_counter()) + " " + std::to_string(get_warning_counter())
            + " " + std::to_string(get_error_counter());
    }

protected:
    void output_buffer(log_type type, zel::string const & text, zel::string const & url) override
    {
        output_buffer_grouped(type, "-", text, url);
    }
    void output_buffer_grouped(log_type type, zel::string const & group, zel::string const & text,
                               zel::string const & url) override
    {
        lines.push_back(std::to_string(static_cast<std::int32_t>(type)) + "|" + group + "|" + text
                        + "|" + url);
        if (fail) {
            if (group != "-") {
                clean(); // takes nothing from the arguments
                lines.push_back(group);
            }
            throw std::runtime_error("no output");
        }
    }
};

TEST(logger, hands_on_texts_of_any_length_and_types_that_it_does_not_know)
{
    std::string const text(100'000, 't');
    recorder log;
    log.write_url(static_cast<logger::log_type>(0xFFFFFFFF), "u", "%s-%d", text.c_str(), 7);
    log.write_grouped_url(logger::note, nullptr, "g", "%s", "");
    EXPECT_EQ(log.counters(), "0 0 0");
    EXPECT_EQ(log.lines, (std::vector<std::string>{"-1|-|" + text + "-7|u", "3|g||"}));
}

TEST(logger, counts_and_limits_its_groups)
{
    expect_for_any(logger_property, 1000, [](auto & random) {
        std::string steps = any_bytes(random, 400, "\1\2\3\5\7");
        if (random() % 2 == 0) { // no step of these changes the limit or empties the table
            for (char & step : steps) {
                step &= 0x7F;
            }
        }
        return steps;
    });
}

TEST(logger, a_failure_leaves_what_had_happened)
{
    recorder log;
    char const * const no_format = nullptr;
    EXPECT_THROW(log.write(logger::trace, no_format), zel::memory_exception);
    EXPECT_THROW(log.write_grouped(logger::error, "g", no_format), zel::memory_exception);
    EXPECT_EQ(log.counters(), "0 0 0");
    log.set_group_limitation(1);
    log.write_grouped(logger::note, "g", "held back: the failed one counted");
    EXPECT_TRUE(log.lines.empty());

    log.fail = true;
    EXPECT_THROW(log.write(logger::info, "x"), std::runtime_error);
    EXPECT_EQ(log.counters(), "1 0 0");
    log.lines.clear();
    std::string const group = "a group whose name needs storage of its own";
    EXPECT_THROW(log.write_grouped(logger::info, group.c_str(), "x"), std::runtime_error);
    EXPECT_EQ(log.lines, (std::vector<std::string>{"0|" + group + "|x|", group}));
}

TEST(logger, allocates_nothing_but_the_text_that_it_hands_on)
{
    zel::logger log; // its output takes nothing
    std::string const text(1000, 't');
    log.write_grouped(logger::info, "group", "the first of its group makes the entry");
    struct {
        logger::log_type type;
        std::uint32_t limit;
        unsigned int plain, grouped;
    } const rows[] = {{logger::info, 99, 1, 1}, {logger::info, 0, 1, 0}, {logger::trace, 99, 0, 0}};
    for (auto const & row : rows) {
        log.set_group_limitation(row.limit);
        std::uint64_t const before = allocations::made;
        log.write(row.type, "%s", text.c_str());
        EXPECT_EQ(allocations::made - before, row.plain);
        log.write_grouped(row.type, "group", "%s", text.c_str());
        EXPECT_EQ(allocations::made - before, row.plain + row.grouped);
    }
}

} // namespace
