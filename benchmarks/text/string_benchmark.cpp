// SPDX-License-Identifier: MIT
#include "zel/text/string.h"

#include <Poco/String.h>
#include <absl/strings/ascii.h>
#include <absl/strings/str_format.h>
#include <absl/strings/str_replace.h>
#include <absl/strings/str_split.h>
#include <benchmark/benchmark.h>
#include <cmath>
#include <cstdio>
#include <fmt/printf.h>
#include <glib.h>
#include <random>
#include <string>
#include <vector>

namespace {

// The arguments change from turn to turn, so that no branch is learnt by heart.
struct arguments {
    char const * name;
    int number;
    unsigned int mask;
    double real;
};

std::vector<arguments> const & argument_rows()
{
    static std::vector<arguments> const rows{
        {"width", 1920, 0xFF00, 0.1},
        {"height", 87, 0x1, 2.5},
        {"depth", -24, 0xABCDEF, 1234.5678},
        {"refresh", 60, 0x7F, 1e-7},
        {"offset", 123456, 0x80000000, 3.14159265},
        {"id", 7, 0x10, 98765.4321},
        {"counter", -1000000, 0xA5A5, 1e20},
        {"x", 0, 0, 0},
    };
    return rows;
}

template <typename Print> void with_arguments(benchmark::State & state, Print && print)
{
    auto const & rows = argument_rows();
    std::size_t i = 0;
    for (auto _ : state) {
        print(rows[i]);
        i = (i + 1) % rows.size();
    }
}

#define SHORT_FORMAT "%s=%d (mask %08x)"
#define LONG_FORMAT                                                                                \
    "%s: the value %d was read from the register at %08x, which is out of the range that the "     \
    "device allows"

#define FORMAT_BENCHMARKS(job, pattern, ...)                                                       \
    void job##_zel(benchmark::State & state)                                                       \
    {                                                                                              \
        with_arguments(state, [&](arguments const & row) {                                         \
            zel::string text;                                                                      \
            text.format(pattern, __VA_ARGS__);                                                     \
            benchmark::DoNotOptimize(text);                                                        \
        });                                                                                        \
    }                                                                                              \
    void job##_absl(benchmark::State & state)                                                      \
    {                                                                                              \
        with_arguments(state, [&](arguments const & row) {                                         \
            benchmark::DoNotOptimize(absl::StrFormat(pattern, __VA_ARGS__));                       \
        });                                                                                        \
    }                                                                                              \
    void job##_fmt(benchmark::State & state)                                                       \
    {                                                                                              \
        with_arguments(state, [&](arguments const & row) {                                         \
            benchmark::DoNotOptimize(fmt::sprintf(pattern, __VA_ARGS__));                          \
        });                                                                                        \
    }                                                                                              \
    void job##_snprintf(benchmark::State & state)                                                  \
    {                                                                                              \
        with_arguments(state, [&](arguments const & row) {                                         \
            char buffer[256];                                                                      \
            std::snprintf(buffer, sizeof(buffer), pattern, __VA_ARGS__);                           \
            std::string text(buffer);                                                              \
            benchmark::DoNotOptimize(text);                                                        \
        });                                                                                        \
    }

FORMAT_BENCHMARKS(format_23, SHORT_FORMAT, row.name, row.number, row.mask)
FORMAT_BENCHMARKS(format_113, LONG_FORMAT, row.name, row.number, row.mask)
FORMAT_BENCHMARKS(format_g, "%g", row.real)

void fmt_short(benchmark::State & state)
{
    with_arguments(state, [&](arguments const & row) {
        benchmark::DoNotOptimize(
            fmt::format("{}={} (mask {:08x})", row.name, row.number, row.mask));
    });
}
void fmt_long(benchmark::State & state)
{
    with_arguments(state, [&](arguments const & row) {
        benchmark::DoNotOptimize(fmt::format(
            "{}: the value {} was read from the register at {:08x}, which is out of the range that "
            "the device allows",
            row.name, row.number, row.mask));
    });
}

BENCHMARK(format_23_zel)->Name("format/23/zel");
BENCHMARK(fmt_short)->Name("format/23/fmt::format");
BENCHMARK(format_23_absl)->Name("format/23/absl");
BENCHMARK(format_23_fmt)->Name("format/23/fmt::sprintf");
BENCHMARK(format_23_snprintf)->Name("format/23/snprintf and string");
BENCHMARK(format_113_zel)->Name("format/113/zel");
BENCHMARK(fmt_long)->Name("format/113/fmt::format");
BENCHMARK(format_113_absl)->Name("format/113/absl");
BENCHMARK(format_113_fmt)->Name("format/113/fmt::sprintf");
BENCHMARK(format_113_snprintf)->Name("format/113/snprintf and string");
BENCHMARK(format_g_zel)->Name("format/%g/zel");
BENCHMARK(format_g_absl)->Name("format/%g/absl");
BENCHMARK(format_g_fmt)->Name("format/%g/fmt::sprintf");
BENCHMARK(format_g_snprintf)->Name("format/%g/snprintf and string");

// Values over 40 decades, in four formats at random.
struct real {
    unsigned int format;
    double value;
};

std::vector<real> const & reals()
{
    static std::vector<real> const made = [] {
        std::mt19937_64 random(4);
        std::uniform_real_distribution<double> decade(-20, 20);
        std::vector<real> rows(16384); // more than the processor learns by heart
        for (real & row : rows) {
            row.format = static_cast<unsigned int>(random() % 4);
            row.value = std::pow(10.0, decade(random)) * (random() % 2 == 0 ? 1 : -1);
        }
        return rows;
    }();
    return made;
}

#define FORMAT_REALS(whose, print)                                                                 \
    void format_reals_##whose(benchmark::State & state)                                            \
    {                                                                                              \
        for (auto _ : state) {                                                                     \
            for (real const & row : reals()) {                                                     \
                std::string text = row.format == 0 ? print("%g", row.value)                        \
                    : row.format == 1              ? print("%f", row.value)                        \
                    : row.format == 2              ? print("%.3f", row.value)                      \
                                                   : print("%e", row.value);                                    \
                benchmark::DoNotOptimize(text);                                                    \
            }                                                                                      \
        }                                                                                          \
    }

std::string print_zel(char const * format, double value)
{
    zel::string text;
    text.format(format, value);
    return text;
}
std::string print_snprintf(char const * format, double value)
{
    char buffer[256];
    std::snprintf(buffer, sizeof(buffer), format, value);
    return buffer;
}
FORMAT_REALS(zel, print_zel)
FORMAT_REALS(absl, absl::StrFormat)
FORMAT_REALS(snprintf, print_snprintf)
BENCHMARK(format_reals_zel)->Name("format/doubles/zel");
BENCHMARK(format_reals_absl)->Name("format/doubles/absl");
BENCHMARK(format_reals_snprintf)->Name("format/doubles/snprintf and string");

std::string const & long_argument()
{
    static std::string const text(4'990, 'x');
    return text;
}

void format_5000_zel(benchmark::State & state)
{
    for (auto _ : state) {
        zel::string text;
        text.format("%s=%d", long_argument().c_str(), 12345678);
        benchmark::DoNotOptimize(text);
    }
}
void format_5000_absl(benchmark::State & state)
{
    for (auto _ : state) {
        benchmark::DoNotOptimize(absl::StrFormat("%s=%d", long_argument().c_str(), 12345678));
    }
}
void format_5000_glib(benchmark::State & state)
{
    for (auto _ : state) {
        char * const text = g_strdup_printf("%s=%d", long_argument().c_str(), 12345678);
        benchmark::DoNotOptimize(text);
        g_free(text);
    }
}
BENCHMARK(format_5000_zel)->Name("format/5000/zel");
BENCHMARK(format_5000_absl)->Name("format/5000/absl");
BENCHMARK(format_5000_glib)->Name("format/5000/g_strdup_printf");

// `size` bytes: words of three to nine letters with a comma behind each; capitals and a few bytes
// that XML escapes in between.
std::string words(unsigned int size)
{
    std::string text;
    for (unsigned int i = 0; text.size() < size; ++i) {
        text.append("Temperat<", i * 7 % 7 + 3).append(i % 8 == 3 ? "&," : ",");
    }
    text.resize(size);
    return text;
}

template <unsigned int size> void split_zel(benchmark::State & state)
{
    zel::string const text(words(size));
    zel::string const separator(",");
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.split(separator));
    }
}
template <unsigned int size> void split_absl(benchmark::State & state)
{
    std::string const text(words(size));
    for (auto _ : state) {
        std::vector<std::string> pieces = absl::StrSplit(text, ',');
        benchmark::DoNotOptimize(pieces);
    }
}
BENCHMARK(split_zel<64>)->Name("split/64/zel");
BENCHMARK(split_zel<1024>)->Name("split/1024/zel");
BENCHMARK(split_absl<64>)->Name("split/64/absl");
BENCHMARK(split_absl<1024>)->Name("split/1024/absl");

constexpr char padded[] = "  \tsome text in the middle\r\n";

void trim_zel(benchmark::State & state)
{
    zel::string text;
    for (auto _ : state) {
        text.assign(padded, sizeof(padded) - 1);
        text.trim();
        benchmark::DoNotOptimize(text);
    }
}
void trim_poco(benchmark::State & state)
{
    std::string text;
    for (auto _ : state) {
        text.assign(padded, sizeof(padded) - 1);
        Poco::trimInPlace(text);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(trim_zel)->Name("trim/zel");
BENCHMARK(trim_poco)->Name("trim/Poco");

std::string const pattern = "{name}";
std::string const inserted = "temperature";

// A hit every 16 bytes.
std::string braces(std::size_t size)
{
    std::string text;
    while (text.size() < size) {
        text += "the {name} is a ";
    }
    return text;
}

template <typename Replace> void replace_all(benchmark::State & state, Replace && replace)
{
    std::string const source = braces(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state) {
        benchmark::DoNotOptimize(replace(source));
    }
}
void replace_zel(benchmark::State & state)
{
    zel::string const from(pattern);
    zel::string const to(inserted);
    replace_all(state, [&](std::string const & source) {
        zel::string text(source);
        text.replace(from, to);
        return text;
    });
}
void append_replaced(std::string const & source, std::string & text)
{
    std::size_t start = 0;
    for (std::size_t hit; (hit = source.find(pattern, start)) != std::string::npos;) {
        text.append(source, start, hit - start).append(inserted);
        start = hit + pattern.size();
    }
    text.append(source, start, std::string::npos);
}
void replace_find_and_append(benchmark::State & state)
{
    replace_all(state, [](std::string const & source) {
        std::string text;
        append_replaced(source, text);
        return text;
    });
}
void replace_count_and_append(benchmark::State & state)
{
    replace_all(state, [](std::string const & source) {
        std::size_t hits = 0;
        for (std::size_t hit = source.find(pattern); hit != std::string::npos;
             hit = source.find(pattern, hit + pattern.size())) {
            ++hits;
        }
        std::string text;
        text.reserve(source.size() + hits * (inserted.size() - pattern.size()));
        append_replaced(source, text);
        return text;
    });
}
void replace_absl(benchmark::State & state)
{
    replace_all(state, [](std::string const & source) {
        return absl::StrReplaceAll(source, {{pattern, inserted}});
    });
}
void replace_poco(benchmark::State & state)
{
    replace_all(
        state, [](std::string const & source) { return Poco::replace(source, pattern, inserted); });
}
BENCHMARK(replace_zel)->Name("replace all/zel")->RangeMultiplier(32)->Range(64, 65536);
BENCHMARK(replace_count_and_append)
    ->Name("replace all/count, one allocation")
    ->RangeMultiplier(32)
    ->Range(64, 65536);
BENCHMARK(replace_find_and_append)
    ->Name("replace all/find and append")
    ->RangeMultiplier(32)
    ->Range(64, 65536);
BENCHMARK(replace_absl)->Name("replace all/absl")->RangeMultiplier(32)->Range(64, 65536);
BENCHMARK(replace_poco)->Name("replace all/Poco")->RangeMultiplier(32)->Range(64, 65536);

template <unsigned int size> void to_lower_zel(benchmark::State & state)
{
    zel::string text(words(size));
    for (auto _ : state) {
        text.to_lower();
        benchmark::DoNotOptimize(text);
    }
}
template <unsigned int size> void to_lower_absl(benchmark::State & state)
{
    std::string text(words(size));
    for (auto _ : state) {
        absl::AsciiStrToLower(&text);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(to_lower_zel<1024>)->Name("to_lower/1024/zel");
BENCHMARK(to_lower_absl<1024>)->Name("to_lower/1024/absl");

template <unsigned int size> void xml_zel(benchmark::State & state)
{
    zel::string const text(words(size));
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.normalize_for_xml());
    }
}
template <unsigned int size> void xml_absl(benchmark::State & state)
{
    std::string const text(words(size));
    for (auto _ : state) {
        benchmark::DoNotOptimize(absl::StrReplaceAll(text,
                                                     {{"\t", "#x9;"},
                                                      {"\n", "#xa"},
                                                      {"\r", "#xd"},
                                                      {"\"", "&quot;"},
                                                      {"&", "&amp;"},
                                                      {"<", "&lt;"},
                                                      {">", "&gt;"}}));
    }
}
template <unsigned int size> void xml_switch(benchmark::State & state)
{
    std::string const text(words(size));
    for (auto _ : state) {
        std::string escaped;
        escaped.reserve(text.size());
        for (char const c : text) {
            switch (c) {
            case '\t':
                escaped += "#x9;";
                break;
            case '\n':
                escaped += "#xa";
                break;
            case '\r':
                escaped += "#xd";
                break;
            case '"':
                escaped += "&quot;";
                break;
            case '&':
                escaped += "&amp;";
                break;
            case '<':
                escaped += "&lt;";
                break;
            case '>':
                escaped += "&gt;";
                break;
            default:
                escaped += c;
            }
        }
        benchmark::DoNotOptimize(escaped);
    }
}
BENCHMARK(xml_zel<1024>)->Name("normalize_for_xml/1024/zel");
BENCHMARK(xml_absl<1024>)->Name("normalize_for_xml/1024/absl");
BENCHMARK(xml_switch<1024>)->Name("normalize_for_xml/1024/switch");

template <unsigned int size> void hash_zel(benchmark::State & state)
{
    zel::string const text(words(size));
    for (auto _ : state) {
        benchmark::DoNotOptimize(text.hash(0xFFFFFFFF));
    }
}
template <unsigned int size> void hash_plain(benchmark::State & state)
{
    std::string const text(words(size));
    for (auto _ : state) {
        std::uint32_t hash = 0;
        for (char const c : text) {
            hash = (hash + static_cast<std::uint32_t>(static_cast<signed char>(c))) * 1025;
            hash ^= hash >> 6;
        }
        hash *= 9;
        hash ^= hash >> 11;
        benchmark::DoNotOptimize(hash * 32769);
    }
}
BENCHMARK(hash_zel<1024>)->Name("hash/1024/zel");
BENCHMARK(hash_plain<1024>)->Name("hash/1024/plain loop");

} // namespace
