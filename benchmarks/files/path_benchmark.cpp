// SPDX-License-Identifier: MIT
#include "zel/files/path.h"

#include <benchmark/benchmark.h>
#include <filesystem>
#include <fnmatch.h>
#include <glib.h>
#include <string>
#include <strings.h>

namespace {

// One combination and its resolution: C:\home\user\project\source with ..\include\.\zel\path.h.
void combine_zel(benchmark::State & state)
{
    zel::path const folder("C:\\home\\user\\project\\source");
    zel::path target;
    char const * name = "..\\include\\.\\zel\\path.h";
    for (auto _ : state) {
        target = folder;
        benchmark::DoNotOptimize(name);
        benchmark::DoNotOptimize(target.append(name, true));
    }
}

void combine_glib(benchmark::State & state)
{
    char const * name = "../include/./zel/path.h";
    for (auto _ : state) {
        benchmark::DoNotOptimize(name);
        char * const target = g_canonicalize_filename(name, "/home/user/project/source");
        benchmark::DoNotOptimize(target);
        g_free(target);
    }
}

void combine_std(benchmark::State & state)
{
    std::filesystem::path const folder("/home/user/project/source");
    char const * name = "../include/./zel/path.h";
    for (auto _ : state) {
        benchmark::DoNotOptimize(name);
        benchmark::DoNotOptimize((folder / name).lexically_normal());
    }
}

void relative_zel(benchmark::State & state)
{
    char const * from = "C:\\home\\user\\project\\source\\deep";
    char const * to = "C:\\home\\user\\project\\include\\zel\\path.h";
    zel::path way;
    for (auto _ : state) {
        benchmark::DoNotOptimize(from);
        benchmark::DoNotOptimize(
            way.relative_path_to(from, zel::path::attr_directory, to, zel::path::attr_normal));
    }
}

void relative_std(benchmark::State & state)
{
    std::filesystem::path const from("/home/user/project/source/deep");
    std::filesystem::path const to("/home/user/project/include/zel/path.h");
    for (auto _ : state) {
        benchmark::DoNotOptimize(to.lexically_relative(from));
    }
}

constexpr char const * names[] = {"path_benchmark.cpp", "path.h", "a_rather_long_file_name.tar.gz",
                                  "README", "shell_path_fuzzer.cpp"};
constexpr char const * pattern = "*path*.cpp";

void match_zel(benchmark::State & state)
{
    zel::path const paths[] = {names[0], names[1], names[2], names[3], names[4]};
    for (auto _ : state) {
        for (auto const & name : paths) {
            benchmark::DoNotOptimize(name.match_spec(pattern));
        }
    }
}

void match_fnmatch(benchmark::State & state)
{
    for (auto _ : state) {
        for (auto const & name : names) {
            benchmark::DoNotOptimize(::fnmatch(pattern, name, FNM_CASEFOLD));
        }
    }
}

// 48 bytes that differ in the last one, and in case throughout.
constexpr char const * first = "C:\\HOME\\USER\\PROJECT\\SOURCE\\DEEP\\DOWN\\FILE_0001.A";
constexpr char const * second = "c:\\home\\user\\project\\source\\deep\\down\\file_0001.b";

void compare_zel(benchmark::State & state)
{
    zel::path const a(first);
    zel::path const b(second);
    for (auto _ : state) {
        bool equal = a == b;
        benchmark::DoNotOptimize(equal);
        benchmark::ClobberMemory();
    }
}

void compare_strcasecmp(benchmark::State & state)
{
    std::string a(first);
    std::string b(second);
    for (auto _ : state) {
        int order = ::strcasecmp(a.c_str(), b.c_str());
        benchmark::DoNotOptimize(order);
        benchmark::ClobberMemory();
    }
}

} // namespace

BENCHMARK(combine_zel)->Name("path combine/zel");
BENCHMARK(combine_glib)->Name("path combine/g_canonicalize_filename");
BENCHMARK(combine_std)->Name("path combine/std::filesystem");
BENCHMARK(relative_zel)->Name("path relative/zel");
BENCHMARK(relative_std)->Name("path relative/std::filesystem");
BENCHMARK(match_zel)->Name("path match, 5 names/zel");
BENCHMARK(match_fnmatch)->Name("path match, 5 names/fnmatch");
BENCHMARK(compare_zel)->Name("path compare/zel");
BENCHMARK(compare_strcasecmp)->Name("path compare/strcasecmp");
