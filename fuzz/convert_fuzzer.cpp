// SPDX-License-Identifier: MIT
// A parser takes the whole text and gives the number that std::from_chars gives, or it raises.

#include "zel/text/convert.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using zel::convert;
using refusal = convert::exception;

[[noreturn]] void fail(char const * what, std::string const & text)
{
    std::fprintf(stderr, "%s: \"%s\"\n", what, text.c_str());
    std::abort();
}

void require(bool condition, char const * what, std::string const & text)
{
    if (!condition) {
        fail(what, text);
    }
}

/// What the standard parser makes of the whole text: the number, or why there is none.
template <typename number> struct standard {
    explicit standard(char const * first, char const * last, int base = 10)
    {
        auto const result = std::from_chars(first, last, value, base);
        whole = first != last && result.ptr == last;
        good = whole && result.ec == std::errc();
    }
    number value{};
    bool whole = false;
    bool good = false;
};

template <typename number, typename parser>
void check_signed(std::string const & text, parser parse)
{
    bool const plus = text[0] == '+';
    char const * const first = text.data() + (plus ? 1 : 0);
    standard<number> const expected(first, text.data() + text.size());
    bool const digits = expected.whole && !(plus && *first == '-');
    try {
        number const value = parse(text.c_str());
        require(digits && expected.good && value == expected.value, "taken", text);
    } catch (refusal & raised) {
        require(!digits || (!expected.good && raised.get_type() == refusal::out_of_range),
                "refused", text);
    }
}

template <typename number, typename parser>
void check_unsigned(std::string const & text, parser parse)
{
    bool const prefix = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    bool const sign = text[0] == '-' || text[0] == '+';
    bool const letter = text.find_first_of("abcdefABCDEF") != std::string::npos;
    char const * const last = text.data() + text.size();
    char const * const first = text.data() + (prefix ? 2 : 0);
    standard<number> const expected(first, last, prefix || letter ? 16 : 10);
    bool good = expected.good && !sign && *first != '-';
    if (good && letter && !prefix) { // the digits before the letter have to fit as a decimal number
        char const * const end = first + text.find_first_of("abcdefABCDEF");
        good = first == end || standard<number>(first, end).good;
    }
    try {
        number const value = parse(text.c_str());
        require(good && value == expected.value, "taken", text);
    } catch (refusal &) {
        require(!good, "refused", text);
    }
}

void check_double(std::string const & text)
{
    char * end = nullptr;
    double const nearest = std::strtod(text.c_str(), &end);
    try {
        double const value = convert::stringToDouble(text.c_str());
        require(std::isfinite(value), "not finite", text);
        // Just above the limit the steps lose what makes a number normal.
        require(value == 0 || std::abs(value) > 2.225e-308, "not normal", text);
        // Where the runtime takes the whole text too, it reads the same number but for the rounding
        // of the steps.
        if (*end == '\0') {
            require(std::abs(value - nearest) <= std::abs(nearest) * 1e-13, "far off", text);
        }
    } catch (refusal & raised) {
        require(raised.get_type() >= refusal::out_of_range
                    && raised.get_type() <= refusal::unexpected_end,
                "no such reason", text);
        // Of what the runtime reads out of these bytes, only two forms are no numbers here.
        bool const is_read = end != text.c_str() && *end == '\0'
            && text.find_first_not_of("0123456789-.e") == std::string::npos;
        require(!is_read || raised.get_type() == refusal::out_of_range || text.back() == '.'
                    || text.starts_with("-."),
                "no number", text);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    std::string text(reinterpret_cast<char const *>(data), size);
    text.resize(std::char_traits<char>::length(text.c_str())); // texts end at their NUL
    check_signed<signed char>(text, convert::stringToInt8);
    check_signed<std::int16_t>(text, convert::stringToInt16);
    check_signed<std::int32_t>(text, convert::stringToInt32);
    check_signed<std::int64_t>(text, convert::stringToInt64);
    check_unsigned<std::uint8_t>(text, convert::stringToUInt8);
    check_unsigned<std::uint16_t>(text, convert::stringToUInt16);
    check_unsigned<std::uint32_t>(text, convert::stringToUInt32);
    check_unsigned<std::uint64_t>(text, convert::stringToUInt64);
    check_double(text);
    std::size_t const start = text.size() / 3, count = text.size() % 5 + 1; // of a piece
    check_signed<std::int64_t>(text.substr(start, count), [&](char const *) {
        return convert::getIntFromString(text.c_str(), static_cast<std::int32_t>(start),
                                         static_cast<std::int32_t>(start + count));
    });
    return 0;
}
