// SPDX-License-Identifier: MIT
#include "zel/text/convert.h"

#include "tests/support/property.h"
#include "tests/support/raised.h"
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <sys/mman.h>
#include <vector>

extern "C" property convert_property;

namespace {

using zel::convert;
using refusal = convert::exception;

template <typename parser>
void expect_refused(parser parse, std::uint32_t reason, std::vector<std::string> texts)
{
    for (auto const & text : texts) {
        EXPECT_EQ(type_raised<refusal>([&] { return parse(text.c_str()); }), reason) << text;
    }
}

TEST(convert_integers, refuse_what_is_not_one_whole_number)
{
    auto const number = convert::stringToInt8;
    expect_refused(number, refusal::unexpected_end, {"", "-", "+"});
    expect_refused(number, refusal::wrong_symbol, {" 7", "7 ", "0x10", "--1", "+-1", "12x8"});
    // The overflow lies in front of what is wrong behind it.
    expect_refused(number, refusal::out_of_range, {"128x", "-129", "1271x"});
    auto const byte = convert::stringToUInt8;
    expect_refused(byte, refusal::unexpected_end, {"", "0x", "0X"});
    expect_refused(byte, refusal::wrong_symbol, {"00x1", "x1", "-1", "+1", "1g"});
    // 300 fails before the letter is reached.
    expect_refused(byte, refusal::out_of_range, {"100F", "0x100", "300A"});
    // Of the last one 20 decimal digits fit; as hexadecimal ones they have wrapped.
    expect_refused(convert::stringToUInt64, refusal::out_of_range,
                   {"18446744073709551616", "0x10000000000000000", "10000000000000000001A"});
}

TEST(convert_fractional, composes_the_pieces)
{
    // clang-format off
    struct { char const * text; double value; } const rows[] = {
        {".5", 0.5}, {"5.e0", 5}, {"e5", 0}, {"1d3", 1000}, {"1E3", 1000}, {"1D3", 1000},
        {"+1e+3", 1000}, {"-0.5", -0.5}, {"-0", -0.0}, {"-0.0", -0.0}, {"-0e7", -0.0},
        {"0.000001", 0x1.0c6f7a0b5ed8ep-20}, // the steps do not give the nearest number
        {"0e999", 0}, {".e5", 0}, {"1e308", 0x1.1ccf385ebc8a3p+1023},
        {"2.3e-308", 0x1.089ed476ecaadp-1022}, {"9223372036854775807", 9223372036854775807.0},
        {"-9223372036854775808.0", -9223372036854775808.0},
        {".00000000000000000008", 0x1.79ca10c924227p-64}, // below the decades of a table
        {"1.+5", 1.05}, // the sign counts as one of the bytes behind the point
        {"0e4294967298", 0}, // 0 whatever the exponent, as far as it fits 64 bits
        {"1.7976931348623157e308", std::numeric_limits<double>::max()},
        {"-1.7976931348623157e+308", -std::numeric_limits<double>::max()},
        {"1.7976931348623153e308", 1.7976931348623153e308}, // where the steps would overflow
        {"2.2250738585072014e-308", 0x0.ffffffffffffdp-1022}, // passes, and becomes subnormal
    };
    // clang-format on
    for (auto const & row : rows) {
        EXPECT_EQ(std::bit_cast<std::uint64_t>(convert::stringToDouble(row.text)),
                  std::bit_cast<std::uint64_t>(row.value))
            << row.text;
    }
    // Every byte counts, however long a piece is.
    std::string const zeros(300, '0');
    EXPECT_EQ(convert::stringToDouble((zeros + "12").c_str()), 12.0);
    EXPECT_EQ(convert::stringToDouble((zeros + "1." + zeros + "e" + zeros + "2").c_str()), 100.0);
    EXPECT_EQ(convert::stringToFloat("3.4e38"), 3.4e38F);
    EXPECT_EQ(convert::stringToFloat("1.2e-38"), 1.2e-38F);
}

TEST(convert_fractional, refuses_the_first_bad_piece)
{
    std::string const zeros(255, '0');
    expect_refused(convert::stringToDouble, refusal::unexpected_end,
                   {"", "-", ".", "5.", "-.5", "1e"});
    expect_refused(convert::stringToDouble, refusal::wrong_symbol,
                   {"1.2.3", "1e2e3", "1e3.4", "1.-5", "0x10", "inf", "1,5", "1e" + zeros + ".5",
                    zeros + "xyz.0", zeros + "xyz", "1." + zeros + "x", "1." + zeros + "xe5",
                    "1e" + zeros + "x", "xe1.5"});
    expect_refused(convert::stringToDouble, refusal::out_of_range,
                   {"12345678901234567890.x", "1.12345678901234567890ex", "1e309", "1.8e308",
                    "1e-308", "1e-309", "1e999999999999", "-1e-2147483648", "1e4294967297",
                    "1e-4294967295", "0e9223372036854775808",
                    "1e" + zeros + "9223372036854775808"});
    expect_refused(convert::stringToFloat, refusal::out_of_range, {"3.5e38", "1e39", "1e-38"});
}

// Numbers of any length with a few bytes changed.
TEST(convert, takes_the_texts_of_numbers_and_no_others)
{
    expect_for_any(convert_property, 40'000, [](auto & random) {
        // Around all powers of two, which the limits are.
        std::uint64_t const number = (std::uint64_t{1} << random() % 64) + random() % 4 - 2;
        std::uint64_t const any = random() % 2 == 0 ? number : random() >> random() % 64;
        std::string text = random() % 2 == 0 ? "-" : std::string(random() % 3 * 12, '0');
        if (random() % 3 == 0) {
            char digits[20];
            std::snprintf(digits, sizeof digits, random() % 2 == 0 ? "0x%llX" : "%llx", any + 0ULL);
            text += digits;
        } else {
            text += std::to_string(any);
        }
        if (random() % 4 == 0) {
            text += '.' + std::to_string(random() % 1'000'000'000'000'000 >> random() % 50);
        }
        if (random() % 4 == 0) {
            text += 'e' + std::to_string(static_cast<int>(random() % 580) - 290);
        }
        for (auto mutations = random() % 4; mutations > 1; --mutations) {
            text.insert(random() % (text.size() + 1), 1, "0123456789+-. .exFg\xff"[random() % 20]);
        }
        return text;
    });
}

// The readers look further than a text goes, but not into a page that cannot be read.
TEST(convert_pieces, may_end_where_memory_ends)
{
    constexpr std::size_t page = 4096;
    void * const pages
        = ::mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    char * const end = static_cast<char *>(pages) + page;
    ASSERT_EQ(::mprotect(end, page, PROT_NONE), 0);
    for (std::size_t size = 1; size <= 30; ++size) {
        char * const text = end - 1 - size;
        std::memset(text, '0', size);
        text[size - 1] = '7';
        EXPECT_EQ(convert::stringToInt64(text), 7) << size;
        EXPECT_EQ(convert::stringToDouble(text), 7.0) << size;
        text[size - 1] = 'F';
        EXPECT_EQ(convert::stringToUInt64(text), 15U) << size;
    }
    ::munmap(pages, 2 * page);
}

TEST(convert_pieces, are_cut_from_a_text)
{
    std::string const long_text = std::string(254, '0') + "12";
    EXPECT_EQ(convert::getIntFromString("a12", 1, -1), 12);
    EXPECT_EQ(convert::getIntFromString("x", 1, 1), 0);
    EXPECT_EQ(convert::getIntFromString(long_text.c_str(), 0, -1), 1);
    EXPECT_EQ(convert::getIntFromString(long_text.c_str(), 0, 256), 1);
    EXPECT_EQ(type_raised<refusal>([] { return convert::getIntFromString("12", 1, 0); }),
              refusal::unexpected_end);
}

TEST(convert_powers, round_at_each_step_and_end)
{
    EXPECT_EQ(convert::mulPow10(0.7, 0), 0.7);
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(convert::mulPow10(0.7, i) * 10.0, convert::mulPow10(0.7, i + 1));
        EXPECT_EQ(convert::mulPow10(0.7, -i) / 10.0, convert::mulPow10(0.7, -i - 1));
    }
    EXPECT_EQ(convert::mulPow10(1, INT64_MAX), std::numeric_limits<double>::infinity());
    EXPECT_EQ(convert::mulPow10(1, INT64_MIN), 0.0);
    EXPECT_TRUE(std::isnan(convert::mulPow10(std::nan(""), INT64_MAX)));
}

TEST(convert_limits, raise_for_what_is_no_normal_number)
{
    double const infinity = std::numeric_limits<double>::infinity();
    // clang-format off
    struct { std::int64_t whole; double fraction; std::int64_t exponent; bool in_float, in_double; }
    const rows[] = {
        {0, 0, INT64_MAX, true, true}, {1, 0.5, 38, true, true}, {-3, 0.5, 38, false, true},
        {1, 0, -38, false, true}, {2, 0.3, -308, false, true}, {INT64_MIN, 0, 0, true, true},
        {0, 5e-324, 286, true, true}, {1, 0, INT32_MAX, false, false},
        {9, 0, INT32_MIN, false, false}, {0, infinity, 0, false, false},
        {0, std::nan(""), 0, false, false}, {0, -1, 0, false, false},
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(testing::PrintToString(&row - rows));
        auto const passes = [&](auto check) {
            return type_raised<refusal>(
                       [&] { return check(row.whole, row.fraction, row.exponent), 0; })
                == 0;
        };
        EXPECT_EQ(passes(convert::checkFloatLimits), row.in_float);
        EXPECT_EQ(passes(convert::composeFloat), row.in_float);
        EXPECT_EQ(passes(convert::checkDoubleLimits), row.in_double);
        EXPECT_EQ(passes(convert::composeDouble), row.in_double);
    }
}

TEST(convert_bits, stay_as_they_are)
{
    static_assert(convert::dblToui64(1.0) == 0x3FF0000000000000);
    static_assert(convert::ui64ToDouble(0x3FF0000000000000) == 1.0);
    static_assert(convert::flToui64(-1.0F) == 0xBF800000);
    static_assert(convert::ui64ToFloat(0xFFFFFFFF3F800000) == 1.0F);
    EXPECT_EQ(refusal(refusal::wrong_symbol, 3, 'q', nullptr).get_message(),
              "Zel Conversion Exception: wrong symbol");
    EXPECT_EQ(refusal(refusal::data_convert_error, -1, "f").get_message(),
              "Zel Conversion Exception: Data convert error f");
    EXPECT_EQ(refusal(refusal::exc_type(9), 0, "").get_message(), " ");
}

} // namespace
