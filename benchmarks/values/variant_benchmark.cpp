// SPDX-License-Identifier: MIT
#include "zel/values/variant.h"

#include <Poco/Dynamic/Var.h>
#include <QString>
#include <QVariant>
#include <any>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <string>

namespace {

using Poco::Dynamic::Var;

// Numbers as a caller has them: not known to the compiler.
template <typename T> T hidden(T value)
{
    benchmark::DoNotOptimize(value);
    return value;
}

template <typename holder> void construct(benchmark::State & state)
{
    for (auto _ : state) {
        holder value(hidden(640));
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(construct<zel::variant>)->Name("variant: construct a number/zel");
BENCHMARK(construct<std::any>)->Name("variant: construct a number/std::any");
BENCHMARK(construct<QVariant>)->Name("variant: construct a number/QVariant");
BENCHMARK(construct<Var>)->Name("variant: construct a number/Poco");

template <typename holder, auto stored> void copy(benchmark::State & state)
{
    holder source(stored());
    for (auto _ : state) {
        benchmark::DoNotOptimize(source);
        holder value(source);
        benchmark::DoNotOptimize(value);
    }
}
constexpr auto number = [] { return 640; };
BENCHMARK(copy<zel::variant, number>)->Name("variant: copy a number/zel");
BENCHMARK(copy<std::any, number>)->Name("variant: copy a number/std::any");
BENCHMARK(copy<QVariant, number>)->Name("variant: copy a number/QVariant");
BENCHMARK(copy<Var, number>)->Name("variant: copy a number/Poco");

// Copies of a QVariant share the text, so that it is no peer here.
template <typename text>
constexpr auto long_text
    = [] { return text("The register is out of the range that the device allows"); };
BENCHMARK(copy<zel::variant, long_text<zel::string>>)->Name("variant: copy a 55-byte text/zel");
BENCHMARK(copy<std::any, long_text<std::string>>)->Name("variant: copy a 55-byte text/std::any");
BENCHMARK(copy<Var, long_text<std::string>>)->Name("variant: copy a 55-byte text/Poco");

template <typename holder, auto stored> void equality(benchmark::State & state)
{
    holder left(stored());
    holder right(stored());
    for (auto _ : state) {
        benchmark::DoNotOptimize(left);
        benchmark::DoNotOptimize(right);
        bool equal = left == right;
        benchmark::DoNotOptimize(equal);
    }
}
BENCHMARK(equality<zel::variant, long_text<zel::string>>)
    ->Name("variant: equality of 55-byte texts/zel");
BENCHMARK(equality<QVariant, long_text<QString>>)
    ->Name("variant: equality of 55-byte texts/QVariant");
BENCHMARK(equality<Var, long_text<std::string>>)->Name("variant: equality of 55-byte texts/Poco");

BENCHMARK(equality<zel::variant, number>)->Name("variant: equality of two integers/zel");
BENCHMARK(equality<QVariant, number>)->Name("variant: equality of two integers/QVariant");
BENCHMARK(equality<Var, number>)->Name("variant: equality of two integers/Poco");

template <typename holder, auto stored, auto as> void read(benchmark::State & state)
{
    holder source(stored());
    for (auto _ : state) {
        benchmark::DoNotOptimize(source);
        auto result = as(source);
        benchmark::DoNotOptimize(result);
    }
}

template <typename T> constexpr auto zel_as = [](zel::variant const & value) { return T(value); };
template <typename T> constexpr auto poco_as = [](Var const & value) { return value.convert<T>(); };
constexpr auto qt_text = [](QVariant const & value) { return value.toString(); };
constexpr auto qt_int = [](QVariant const & value) { return value.toInt(); };
constexpr auto qt_double = [](QVariant const & value) { return value.toDouble(); };
constexpr auto with_strtod = [](char const * text) { return std::strtod(text, nullptr); };

constexpr auto integer = [] { return 12345678; };
BENCHMARK(read<zel::variant, integer, zel_as<zel::string>>)->Name("variant: int to text/zel");
BENCHMARK(read<QVariant, integer, qt_text>)->Name("variant: int to text/QVariant");
BENCHMARK(read<Var, integer, poco_as<std::string>>)->Name("variant: int to text/Poco");

template <typename T> constexpr auto integer_text = [] { return T("12345678"); };
BENCHMARK(read<zel::variant, integer_text<zel::string>, zel_as<std::int32_t>>)
    ->Name("variant: text to int/zel");
BENCHMARK(read<QVariant, integer_text<QString>, qt_int>)->Name("variant: text to int/QVariant");
BENCHMARK(read<Var, integer_text<std::string>, poco_as<int>>)->Name("variant: text to int/Poco");

constexpr auto real = [] { return 1234.5678; };
BENCHMARK(read<zel::variant, real, zel_as<zel::string>>)->Name("variant: double to text/zel");
BENCHMARK(read<QVariant, real, qt_text>)->Name("variant: double to text/QVariant");
BENCHMARK(read<Var, real, poco_as<std::string>>)->Name("variant: double to text/Poco");

template <typename T> constexpr auto real_text = [] { return T("1234.5678"); };
BENCHMARK(read<zel::variant, real_text<zel::string>, zel_as<double>>)
    ->Name("variant: text to double/zel");
BENCHMARK(read<QVariant, real_text<QString>, qt_double>)->Name("variant: text to double/QVariant");
BENCHMARK(read<Var, real_text<std::string>, poco_as<double>>)->Name("variant: text to double/Poco");
BENCHMARK(read<char const *, real_text<char const *>, with_strtod>)
    ->Name("variant: text to double/strtod");

// More digits than a double holds.
template <typename T> constexpr auto precise_text = [] { return T("0.12345678901234567"); };
BENCHMARK(read<zel::variant, precise_text<zel::string>, zel_as<double>>)
    ->Name("variant: 17-digit text to double/zel");
BENCHMARK(read<QVariant, precise_text<QString>, qt_double>)
    ->Name("variant: 17-digit text to double/QVariant");
BENCHMARK(read<Var, precise_text<std::string>, poco_as<double>>)
    ->Name("variant: 17-digit text to double/Poco");
BENCHMARK(read<char const *, precise_text<char const *>, with_strtod>)
    ->Name("variant: 17-digit text to double/strtod");

} // namespace
