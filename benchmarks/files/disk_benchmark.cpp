// SPDX-License-Identifier: MIT
#include "zel/files/file.h"
#include "zel/files/native_path.h"
#include "zel/files/path.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

/// A folder for the whole program, made at its first use and removed at its end.
std::string const & area()
{
    static struct folder {
        folder()
        {
            name = fs::temp_directory_path() / "zel-benchmark-XXXXXX";
            if (::mkdtemp(name.data()) == nullptr) {
                std::abort();
            }
        }
        ~folder()
        {
            std::error_code ignored;
            fs::remove_all(name, ignored);
        }
        std::string name;
    } const made;
    return made.name;
}

void make_entries(std::string const & folder)
{
    fs::create_directories(folder);
    for (int i = 0; i < 10'000; ++i) {
        int const file = ::open((folder + "/entry number " + std::to_string(i) + ".txt").c_str(),
                                O_CREAT, 0600);
        ::close(file);
    }
}

std::string const & listed_folder()
{
    static std::string const name = [] {
        std::string const made = area() + "/listed";
        make_entries(made);
        return made;
    }();
    return name;
}

void list_zel(benchmark::State & state)
{
    zel::path folder = zel::from_native(listed_folder());
    for (auto _ : state) {
        std::list<zel::auto_ptr<zel::path>> entries;
        folder.get_entries(entries);
        benchmark::DoNotOptimize(entries);
    }
}

// Keeps what zel keeps: the whole path of each entry, in a list.
void list_readdir(benchmark::State & state)
{
    for (auto _ : state) {
        std::list<std::string> entries;
        DIR * const folder = ::opendir(listed_folder().c_str());
        while (dirent const * const entry = ::readdir(folder)) {
            std::string_view const name = entry->d_name;
            if (name != "." && name != "..") {
                entries.push_back(listed_folder() + '/' + entry->d_name);
            }
        }
        ::closedir(folder);
        benchmark::DoNotOptimize(entries);
    }
}

template <typename Remove> void remove_entries(benchmark::State & state, Remove && remove)
{
    std::string const folder = area() + "/removed";
    for (auto _ : state) {
        state.PauseTiming();
        make_entries(folder);
        state.ResumeTiming();
        if (!remove(folder)) {
            state.SkipWithError("not removed");
        }
    }
}

void remove_zel(benchmark::State & state)
{
    remove_entries(state,
                   [](std::string const & folder) { return zel::from_native(folder).remove(); });
}

void remove_std(benchmark::State & state)
{
    remove_entries(state,
                   [](std::string const & folder) { return fs::remove_all(folder) == 10'001; });
}

/// Two files of equal random bytes.
std::pair<std::string, std::string> const & equal_files()
{
    static std::pair<std::string, std::string> const names = [] {
        std::pair<std::string, std::string> made(area() + "/first", area() + "/second");
        std::FILE * const first = std::fopen(made.first.c_str(), "wb");
        std::vector<unsigned int> block(1'000'000 / sizeof(unsigned int));
        unsigned int number = 1;
        for (int i = 0; i < 100; ++i) {
            for (auto & word : block) {
                word = number = number * 1664525 + 1013904223;
            }
            std::fwrite(block.data(), 1, 1'000'000, first);
        }
        std::fclose(first);
        fs::copy_file(made.first, made.second);
        return made;
    }();
    return names;
}

bool run(std::vector<char const *> arguments)
{
    arguments.push_back(nullptr);
    pid_t child = 0;
    int status = -1;
    return ::posix_spawnp(&child, arguments[0], nullptr, nullptr,
                          const_cast<char * const *>(arguments.data()), environ)
        == 0
        && ::waitpid(child, &status, 0) == child && status == 0;
}

void compare_zel(benchmark::State & state)
{
    zel::path const first = zel::from_native(equal_files().first);
    zel::path const second = zel::from_native(equal_files().second);
    for (auto _ : state) {
        if (!zel::path::compare_files(first, second)) {
            state.SkipWithError("not equal");
        }
    }
}

void compare_cmp(benchmark::State & state)
{
    for (auto _ : state) {
        if (!run({"cmp", equal_files().first.c_str(), equal_files().second.c_str()})) {
            state.SkipWithError("not equal");
        }
    }
}

std::string const & large_file()
{
    static std::string const name = [] {
        std::string made = area() + "/large";
        for (int i = 0; i < 10; ++i) {
            run({"dd", "status=none", "oflag=append", "conv=notrunc", "bs=1M",
                 ("if=" + equal_files().first).c_str(), ("of=" + made).c_str()});
        }
        return made;
    }();
    return name;
}

template <typename Copy> void copy_file(benchmark::State & state, Copy && copy)
{
    std::string const target = area() + "/copy";
    large_file();
    for (auto _ : state) {
        if (!copy(target)) {
            state.SkipWithError("not copied");
        }
        state.PauseTiming();
        fs::remove(target);
        state.ResumeTiming();
    }
}

void copy_zel(benchmark::State & state)
{
    copy_file(state, [](std::string const & target) {
        return zel::from_native(large_file()).copy(zel::from_native(target));
    });
}

void copy_cp(benchmark::State & state)
{
    copy_file(state, [](std::string const & target) {
        return run({"cp", large_file().c_str(), target.c_str()});
    });
}

constexpr int pieces = 16'384; // of 64 bytes: 1 MiB

void write_zel(benchmark::State & state)
{
    zel::path const name = zel::from_native(area() + "/pieces");
    char const piece[64] = {};
    for (auto _ : state) {
        zel::file out(name, zel::file::mode_write, zel::file::kind_binary);
        for (int i = 0; i < pieces; ++i) {
            benchmark::DoNotOptimize(out.write(piece, sizeof piece));
        }
    }
}

void write_stdio(benchmark::State & state)
{
    std::string const name = area() + "/pieces";
    char const piece[64] = {};
    for (auto _ : state) {
        std::FILE * const out = std::fopen(name.c_str(), "wb");
        for (int i = 0; i < pieces; ++i) {
            benchmark::DoNotOptimize(std::fwrite(piece, 1, sizeof piece, out));
        }
        std::fclose(out);
    }
}

void read_zel(benchmark::State & state)
{
    zel::path const name = zel::from_native(equal_files().first);
    char piece[64];
    for (auto _ : state) {
        zel::file in(name, zel::file::mode_read, zel::file::kind_binary);
        for (int i = 0; i < pieces; ++i) {
            benchmark::DoNotOptimize(in.read(piece, sizeof piece));
        }
    }
}

void read_stdio(benchmark::State & state)
{
    char piece[64];
    for (auto _ : state) {
        std::FILE * const in = std::fopen(equal_files().first.c_str(), "rb");
        for (int i = 0; i < pieces; ++i) {
            benchmark::DoNotOptimize(std::fread(piece, 1, sizeof piece, in));
        }
        std::fclose(in);
    }
}

} // namespace

// Real time throughout: what a program that is started spends is not this process's.
#define DISK_BENCHMARK(function, name) BENCHMARK(function)->Name(name)->UseRealTime()

DISK_BENCHMARK(list_zel, "list 10,000 entries/zel");
DISK_BENCHMARK(list_readdir, "list 10,000 entries/readdir");
DISK_BENCHMARK(remove_zel, "remove 10,000 entries/zel")->Iterations(1);
DISK_BENCHMARK(remove_std, "remove 10,000 entries/std::filesystem")->Iterations(1);
DISK_BENCHMARK(compare_zel, "compare two files of 100 MB/zel");
DISK_BENCHMARK(compare_cmp, "compare two files of 100 MB/cmp");
DISK_BENCHMARK(copy_zel, "copy 1 GB/zel")->Iterations(1);
DISK_BENCHMARK(copy_cp, "copy 1 GB/cp")->Iterations(1);
DISK_BENCHMARK(write_zel, "write 1 MiB by 64 bytes/zel");
DISK_BENCHMARK(write_stdio, "write 1 MiB by 64 bytes/fwrite");
DISK_BENCHMARK(read_zel, "read 1 MiB by 64 bytes/zel");
DISK_BENCHMARK(read_stdio, "read 1 MiB by 64 bytes/fread");
