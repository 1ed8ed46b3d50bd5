// SPDX-License-Identifier: MIT
// Numbers from texts of many lengths, so that no branch is guessed right every time. The peers are
// told where a text ends; zel and strtod find out.

#include "zel/text/convert.h"

#include <absl/strings/numbers.h>
#include <benchmark/benchmark.h>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fast_float/fast_float.h>
#include <random>
#include <string>
#include <vector>

namespace {

using zel::convert;
using texts = std::vector<std::string>;

// So many that the processor cannot learn their lengths by heart, as it does with a thousand.
constexpr std::size_t text_count = 16384;

// Digits, the first of which is not 0.
std::string digits(std::mt19937_64 & random, std::size_t count)
{
    std::string text(count, static_cast<char>('1' + random() % 9));
    for (std::size_t i = 1; i < count; ++i) {
        text[i] = static_cast<char>('0' + random() % 10);
    }
    return text;
}

// One digit up to `longest`, all lengths equally frequent.
texts integers(std::size_t longest, char const * end)
{
    std::mt19937_64 random(1);
    texts made(text_count);
    for (std::string & text : made) {
        text = digits(random, 1 + random() % longest);
        if (text.size() == 19) {
            text[0] = '8'; // to fit 64 bits with a sign
        }
        text += end;
    }
    return made;
}

// 1 to 17 digits with a point somewhere among them.
texts pointed()
{
    std::mt19937_64 random(3);
    texts made(text_count);
    for (std::string & text : made) {
        text = digits(random, 1 + random() % 17);
        if (text.size() == 1) {
            text.insert(0, 1, '0');
        }
        text.insert(1 + random() % (text.size() - 1), 1, '.');
    }
    return made;
}

// Amounts, measurements and numbers with an exponent.
texts fractions()
{
    std::mt19937_64 random(2);
    texts made(text_count);
    for (std::string & text : made) {
        std::uniform_real_distribution<double> number(-1000, 1000);
        char digits[64];
        static char const * const formats[] = {"%.2f", "%.6f", "%.9g", "%.5e"};
        std::snprintf(digits, sizeof digits, formats[random() % 4], number(random));
        text = digits;
    }
    return made;
}

texts const & int32_texts()
{
    static texts const made = integers(9, "");
    return made;
}
texts const & int64_texts()
{
    static texts const made = integers(19, "");
    return made;
}
texts const & hexadecimal_texts()
{
    // A letter at the end tells all of them from decimal numbers.
    static texts const made = integers(9, "F");
    return made;
}
texts const & pointed_texts()
{
    static texts const made = pointed();
    return made;
}
texts const & fraction_texts()
{
    static texts const made = fractions();
    return made;
}

template <typename integer, int base = 10> integer with_from_chars(std::string const & text)
{
    integer number{};
    std::from_chars(text.data(), text.data() + text.size(), number, base);
    return number;
}

double with_from_chars_double(std::string const & text)
{
    double number{};
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

double with_fast_float(std::string const & text)
{
    double number{};
    fast_float::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

std::uint64_t with_absl_hexadecimal(std::string const & text)
{
    std::uint64_t number{};
    static_cast<void>(absl::SimpleHexAtoi(text, &number));
    return number;
}

template <texts const & (*corpus)(), auto parse> void number_from_text(benchmark::State & state)
{
    texts const & all = corpus();
    for (auto _ : state) {
        for (std::string const & text : all) {
            benchmark::DoNotOptimize(parse(text));
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(text_count));
}

template <auto parse> auto of(std::string const & text) { return parse(text.c_str()); }
double with_strtod(char const * text) { return std::strtod(text, nullptr); }

BENCHMARK(number_from_text<int32_texts, of<convert::stringToInt32>>)->Name("int32/zel");
BENCHMARK(number_from_text<int32_texts, with_from_chars<std::int32_t>>)->Name("int32/from_chars");
BENCHMARK(number_from_text<int64_texts, of<convert::stringToInt64>>)->Name("int64/zel");
BENCHMARK(number_from_text<int64_texts, with_from_chars<std::int64_t>>)->Name("int64/from_chars");
BENCHMARK(number_from_text<int64_texts, of<convert::stringToUInt64>>)->Name("uint64/zel");
BENCHMARK(number_from_text<int64_texts, with_from_chars<std::uint64_t>>)->Name("uint64/from_chars");

BENCHMARK(number_from_text<hexadecimal_texts, of<convert::stringToUInt64>>)
    ->Name("hexadecimal/zel");
BENCHMARK(number_from_text<hexadecimal_texts, with_from_chars<std::uint64_t, 16>>)
    ->Name("hexadecimal/from_chars");
BENCHMARK(number_from_text<hexadecimal_texts, with_absl_hexadecimal>)->Name("hexadecimal/absl");

// Here the steps are part of the result, so that strtod is the peer; the others round once.
BENCHMARK(number_from_text<fraction_texts, of<convert::stringToDouble>>)->Name("double/zel");
BENCHMARK(number_from_text<fraction_texts, of<with_strtod>>)->Name("double/strtod");
BENCHMARK(number_from_text<pointed_texts, of<convert::stringToDouble>>)
    ->Name("double of 1 to 17 digits/zel");
BENCHMARK(number_from_text<pointed_texts, of<with_strtod>>)
    ->Name("double of 1 to 17 digits/strtod");
BENCHMARK(number_from_text<fraction_texts, with_from_chars_double>)
    ->Name("double_rounded_once/from_chars");
BENCHMARK(number_from_text<fraction_texts, with_fast_float>)
    ->Name("double_rounded_once/fast_float");

} // namespace
