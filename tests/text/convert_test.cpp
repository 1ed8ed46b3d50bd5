// SPDX-License-Identifier: MIT
#include "zel/text/convert.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>
#include <type_traits>

namespace {

using zel::convert;
using refusal = convert::exception;

/// What a parser makes of a text: the reason of its refusal, or 0 and the value.
template <typename number> struct outcome {
    std::uint32_t reason;
    number value;
};

template <typename function> auto run(function && call) -> outcome<decltype(call())>
{
    try {
        return {0, call()};
    } catch (refusal & raised) {
        return {raised.get_type(), {}};
    }
}

template <typename number> number parse(char const * text)
{
    // clang-format off
    if constexpr (std::is_same_v<number, signed char>) return convert::stringToInt8(text);
    else if constexpr (std::is_same_v<number, short>) return convert::stringToInt16(text);
    else if constexpr (std::is_same_v<number, std::int32_t>) return convert::stringToInt32(text);
    else if constexpr (std::is_same_v<number, std::int64_t>) return convert::stringToInt64(text);
    else if constexpr (std::is_same_v<number, unsigned char>) return convert::stringToUInt8(text);
    else if constexpr (std::is_same_v<number, unsigned short>) return convert::stringToUInt16(text);
    else if constexpr (std::is_same_v<number, std::uint32_t>) return convert::stringToUInt32(text);
    else if constexpr (std::is_same_v<number, std::uint64_t>) return convert::stringToUInt64(text);
    else if constexpr (std::is_same_v<number, float>) return convert::stringToFloat(text);
    else return convert::stringToDouble(text);
    // clang-format on
}

template <typename number> class convert_integers : public testing::Test {
};
using integers = testing::Types<signed char, short, std::int32_t, std::int64_t, unsigned char,
                                unsigned short, std::uint32_t, std::uint64_t>;
TYPED_TEST_SUITE(convert_integers, integers);

TYPED_TEST(convert_integers, reach_their_limits_and_no_further)
{
    using limits = std::numeric_limits<TypeParam>;
    auto const next = [](std::string text) { // the text of a number one further from 0
        std::size_t i = text.size() - 1; // no limit ends in 9
        ++text[i];
        return text;
    };
    std::string const largest = std::to_string(limits::max());
    std::string const smallest = std::to_string(limits::min());
    for (char const * zeros : {"", "0", "0000000000000000000000000"}) {
        SCOPED_TRACE(zeros);
        EXPECT_EQ(parse<TypeParam>((zeros + largest).c_str()), limits::max());
        EXPECT_EQ(run([&] { return parse<TypeParam>((zeros + next(largest)).c_str()); }).reason,
                  refusal::out_of_range);
        // The overflow lies in front of what is wrong behind it.
        EXPECT_EQ(run([&] { return parse<TypeParam>((zeros + largest + "1x").c_str()); }).reason,
                  refusal::out_of_range);
    }
    EXPECT_EQ(parse<TypeParam>(smallest.c_str()), limits::min());
    if (std::is_signed_v<TypeParam>) {
        EXPECT_EQ(run([&] { return parse<TypeParam>(next(smallest).c_str()); }).reason,
                  refusal::out_of_range);
        EXPECT_EQ(parse<TypeParam>("+7"), TypeParam{7});
        EXPECT_EQ(parse<TypeParam>("-0"), TypeParam{0});
    }
}

// Every text over a small alphabet and random ones: the standard parser, which knows the grammar of
// plain decimal numbers, and the rules about what is wrong first.
TYPED_TEST(convert_integers, agree_with_the_standard_parser)
{
    constexpr bool with_sign = std::is_signed_v<TypeParam>;
    std::mt19937_64 random(1);
    for (int i = 0; i < 130'000; ++i) {
        std::string text = std::to_string(static_cast<TypeParam>(random() >> random() % 64));
        for (auto mutations = random() % 4; mutations > 1; --mutations) {
            auto const at = random() % (text.size() + 1);
            text.insert(at, 1, "0123456789+- .g\xff"[random() % 16]);
        }
        std::string const digits = with_sign && text[0] == '+' ? text.substr(1) : text;
        TypeParam expected{};
        auto const [end, error]
            = std::from_chars(digits.data(), digits.data() + digits.size(), expected);
        bool const good = error == std::errc() && *end == '\0' && text.substr(0, 2) != "+-";
        auto const result = run([&] { return parse<TypeParam>(text.c_str()); });
        ASSERT_EQ(result.reason == 0, good) << text;
        ASSERT_EQ(result.value, good ? expected : TypeParam{}) << text;
    }
}

TEST(convert_signed, refuses_what_is_not_one_whole_number)
{
    struct {
        char const * text;
        std::uint32_t reason;
    } const rows[] = {
        {"", refusal::unexpected_end},   {"-", refusal::unexpected_end},
        {"+", refusal::unexpected_end},  {" 7", refusal::wrong_symbol},
        {"7 ", refusal::wrong_symbol},   {"0x10", refusal::wrong_symbol},
        {"--1", refusal::wrong_symbol},  {"+-1", refusal::wrong_symbol},
        {"128x", refusal::out_of_range}, {"12x8", refusal::wrong_symbol},
    };
    for (auto const & row : rows) {
        EXPECT_EQ(run([&] { return convert::stringToInt8(row.text); }).reason, row.reason)
            << row.text;
    }
}

TEST(convert_unsigned, takes_a_letter_for_hexadecimal)
{
    struct {
        char const * text;
        std::uint32_t reason;
        std::uint64_t value;
        bool wide;
    } const rows[] = {
        {"10", 0, 10, false},
        {"0x10", 0, 16, false},
        {"1F", 0, 31, false}, // the letter counts for the digit before it too
        {"0XfF", 0, 255, false},
        {"0", 0, 0, false},
        {"00000000000000000000fe", 0, 254, false},
        {"0x00000000000000000001", 0, 1, false},
        {"", refusal::unexpected_end, 0, false},
        {"0x", refusal::unexpected_end, 0, false},
        {"00x1", refusal::wrong_symbol, 0, false},
        {"x1", refusal::wrong_symbol, 0, false},
        {"-1", refusal::wrong_symbol, 0, false},
        {"+1", refusal::wrong_symbol, 0, false},
        {"1g", refusal::wrong_symbol, 0, false},
        {"100F", refusal::out_of_range, 0, false},
        {"0x100", refusal::out_of_range, 0, false},
        {"300A", refusal::out_of_range, 0, false}, // 300 fails before the letter
        {"FFFFFFFFFFFFFFFF", 0, UINT64_MAX, true},
        {"0xFFFFFFFFFFFFFFFF", 0, UINT64_MAX, true},
        {"0x10000000000000000", refusal::out_of_range, 0, true},
        {"1844674407370955161A", refusal::out_of_range, 0, true},
        // 20 decimal digits fit; as hexadecimal ones they have wrapped to a small number.
        {"10000000000000000001A", refusal::out_of_range, 0, true},
        {"1000000000000000F", refusal::out_of_range, 0, true},
    };
    for (auto const & row : rows) {
        auto const result = run([&] {
            return row.wide ? convert::stringToUInt64(row.text) : convert::stringToUInt8(row.text);
        });
        EXPECT_EQ(result.reason, row.reason) << row.text;
        EXPECT_EQ(result.value, row.value) << row.text;
    }
}

TEST(convert_fractional, composes_the_pieces)
{
    struct {
        char const * text;
        double value;
    } const rows[] = {
        {"1.5", 1.5},
        {".5", 0.5},
        {"5.e0", 5},
        {"e5", 0},
        {"1d3", 1000},
        {"1E3", 1000},
        {"1D3", 1000},
        {"+1e+3", 1000},
        {"1.5e-3", .0015},
        {"1.05", 1.05},
        {"-0.5", -0.5},
        {"-0", -0.0},
        {"-0.0", -0.0},
        {"-0e7", -0.0},
        {"0.000001", 0x1.0c6f7a0b5ed8ep-20}, // the steps do not give the nearest number

        {"0e999", 0},
        {".e5", 0},
        {"1e308", 0x1.1ccf385ebc8a3p+1023},
        {"2.3e-308", 0x1.089ed476ecaadp-1022},
        {"9223372036854775807", 9223372036854775807.0},
        {"-9223372036854775808.0", -9223372036854775808.0},
        {"1.+5", 1.05}, // the sign counts as one of the bytes behind the point
        {"1e4294967298", 100}, // an exponent counts with its low 32 bits
    };
    for (auto const & row : rows) {
        EXPECT_EQ(std::bit_cast<std::uint64_t>(convert::stringToDouble(row.text)),
                  std::bit_cast<std::uint64_t>(row.value))
            << row.text;
    }
    EXPECT_EQ(convert::stringToFloat("3.4e38"), 3.4e38F);
    EXPECT_EQ(convert::stringToFloat("1.2e-38"), 1.2e-38F);
    EXPECT_EQ(convert::stringToFloat("123456789012"), 123456789012.0F);
}

TEST(convert_fractional, refuses_the_first_bad_piece)
{
    struct {
        char const * text;
        std::uint32_t reason;
    } const rows[] = {
        {"", refusal::unexpected_end},
        {"-", refusal::unexpected_end},
        {".", refusal::unexpected_end},
        {"5.", refusal::unexpected_end},
        {"-.5", refusal::unexpected_end},
        {"1e", refusal::unexpected_end},
        {"1.2.3", refusal::wrong_symbol},
        {"1e2e3", refusal::wrong_symbol},
        {"1e3.4", refusal::wrong_symbol},
        {"1.-5", refusal::wrong_symbol},
        {"0x10", refusal::wrong_symbol},
        {"inf", refusal::wrong_symbol},
        {"1,5", refusal::wrong_symbol},
        {"12345678901234567890.x", refusal::out_of_range},
        {"1.12345678901234567890ex", refusal::out_of_range},
        {"1e309", refusal::out_of_range},
        {"1.8e308", refusal::out_of_range},
        {"1e-308", refusal::out_of_range},
        {"1.797693134862315e308", refusal::out_of_range}, // the last step overflows
        {"1e-309", refusal::out_of_range},
        {"1e999999999999", refusal::out_of_range},
        {"-1e-2147483648", refusal::out_of_range},
    };
    for (auto const & row : rows) {
        EXPECT_EQ(run([&] { return convert::stringToDouble(row.text); }).reason, row.reason)
            << row.text;
    }
    for (char const * text : {"3.5e38", "1e39", "1e-38"}) {
        EXPECT_EQ(run([&] { return convert::stringToFloat(text); }).reason, refusal::out_of_range);
    }
    // The point lies behind what the piece of the exponent holds, and is seen all the same.
    std::string const far = "1e" + std::string(300, '0') + ".5";
    EXPECT_EQ(run([&] { return convert::stringToDouble(far.c_str()); }).reason,
              refusal::wrong_symbol);
}

TEST(convert_fractional, is_close_to_the_nearest_number)
{
    std::mt19937_64 random(2);
    for (int i = 0; i < 300'000; ++i) {
        std::string text = std::to_string(static_cast<std::int64_t>(random()) >> random() % 64);
        if (random() % 8 != 0) {
            text += '.' + std::to_string(random() % 1'000'000'000'000'000 >> random() % 50);
        }
        if (random() % 2 != 0) {
            text += 'e' + std::to_string(static_cast<int>(random() % 580) - 290);
        }
        for (auto mutations = random() % 3; mutations > 1; --mutations) {
            text[random() % text.size()] = "0123456789.e"[random() % 12];
        }
        char * end = nullptr;
        double const nearest = std::strtod(text.c_str(), &end);
        auto const result = run([&] { return convert::stringToDouble(text.c_str()); });
        if (result.reason == 0) {
            ASSERT_NEAR(result.value, nearest, std::abs(nearest) * 1e-14) << text;
        } else if (*end == '\0' && result.reason != refusal::out_of_range) {
            // Of what the runtime takes, only these forms are no numbers here.
            bool const bare_point = text.back() == '.' || text.substr(0, 2) == "-.";
            ASSERT_TRUE(bare_point) << text;
        }
    }
}

TEST(convert_pieces, are_cut_from_a_text)
{
    std::string const long_text = std::string(254, '0') + "12";
    EXPECT_EQ(convert::getIntFromString("a12b", 1, 3), 12);
    EXPECT_EQ(convert::getIntFromString("a12", 1, -1), 12);
    EXPECT_EQ(convert::getIntFromString("a12", 1, 30), 12);
    EXPECT_EQ(convert::getIntFromString("x", 1, 1), 0);
    EXPECT_EQ(convert::getIntFromString(long_text.c_str(), 0, -1), 1);
    EXPECT_EQ(convert::getIntFromString(long_text.c_str(), 0, 256), 1);
    EXPECT_EQ(run([] { return convert::getIntFromString("12", 1, 0); }).reason,
              refusal::unexpected_end);
}

TEST(convert_powers, round_at_each_step_and_end)
{
    double product = 0.7;
    double quotient = 0.7;
    for (int i = 0; i < 300; ++i) {
        EXPECT_EQ(convert::mulPow10(0.7, i), product);
        EXPECT_EQ(convert::mulPow10(0.7, -i), quotient);
        product *= 10.0;
        quotient /= 10.0;
    }
    EXPECT_EQ(convert::mulPow10(1, INT64_MAX), std::numeric_limits<double>::infinity());
    EXPECT_EQ(convert::mulPow10(1, INT64_MIN), 0.0);
    EXPECT_TRUE(std::isnan(convert::mulPow10(std::nan(""), INT64_MAX)));
}

TEST(convert_limits, raise_for_what_is_no_normal_number)
{
    double const infinity = std::numeric_limits<double>::infinity();
    struct {
        std::int64_t integer_part;
        double fraction;
        std::int64_t exponent;
        bool good_float, good_double;
    } const rows[] = {
        {0, 0, INT64_MAX, true, true},      {1, 0.5, 38, true, true},
        {-3, 0.5, 38, false, true},         {1, 0, -38, false, true},
        {2, 0.3, -308, false, true},        {INT64_MIN, 0, 0, true, true},
        {0, 5e-324, 286, true, true},       {1, 0, INT32_MAX, false, false},
        {9, 0, INT32_MIN, false, false},    {0, infinity, 0, false, false},
        {0, std::nan(""), 0, false, false}, {0, -1, 0, false, false},
    };
    for (auto const & row : rows) {
        SCOPED_TRACE(testing::PrintToString(&row - rows));
        auto const passes = [&](auto check) {
            return run([&] {
                       return check(row.integer_part, row.fraction, row.exponent), 0;
                   }).reason
                == 0;
        };
        EXPECT_EQ(passes(convert::checkFloatLimits), row.good_float);
        EXPECT_EQ(passes(convert::composeFloat), row.good_float);
        EXPECT_EQ(passes(convert::checkDoubleLimits), row.good_double);
        EXPECT_EQ(passes(convert::composeDouble), row.good_double);
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
