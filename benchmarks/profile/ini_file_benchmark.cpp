// SPDX-License-Identifier: MIT
// One entry read from, or written to, a file of settings on disk. Every candidate looks at the file
// each time: QSettings, which keeps files in memory, finds a new time of change.
#include "zel/profile/ini_file.h"

#include "zel/files/native_path.h"
#include <QSettings>
#define SI_NO_CONVERSION // bytes as they are
#include <SimpleIni.h>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <glib.h>
#include <ini.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int entries_a_section = 20;

/// A file of about that size, in a folder of its own; sections of 20 entries, half a KiB each.
class settings_file {
public:
    explicit settings_file(std::size_t size)
    {
        char folder[] = "/tmp/zel-benchmark-XXXXXX";
        if (::mkdtemp(folder) == nullptr) {
            std::abort();
        }
        folder_ = folder;
        name_ = folder_ + "/settings.ini";
        std::string text;
        for (; text.size() < size; ++sections_) {
            text += "[section " + std::to_string(sections_) + "]\n";
            for (int i = 0; i < entries_a_section; ++i) {
                text += "key" + std::to_string(i) + "=value number " + std::to_string(i) + "\n";
            }
            text += "\n";
        }
        std::ofstream(name_) << text;
    }
    ~settings_file() { std::filesystem::remove_all(folder_); }

    std::string const & name() const { return name_; }
    /// The section that lies that part of the way through the file.
    std::string section(double part) const
    {
        return "section " + std::to_string(static_cast<int>(part * (sections_ - 1)));
    }

private:
    std::string folder_;
    std::string name_;
    int sections_ = 0;
};

std::string const key = "key10";
std::string const expected = "value number 10";

void check(benchmark::State & state, bool right)
{
    if (!right) {
        state.SkipWithError("a wrong answer");
    }
}

/// An entry that lies that part of the way through a file of that size.
struct job {
    job(std::size_t size, double part)
        : file(size)
        , section(file.section(part))
    {
    }
    settings_file file;
    std::string section;
};

void read_with_zel(benchmark::State & state, std::size_t size, double part)
{
    job const work(size, part);
    zel::ini_file file(zel::from_native(work.file.name()).c_str());
    zel::string const section(work.section), name(key), none;
    for (auto _ : state) {
        check(state, file.read_string(section, name, none) == expected.c_str());
    }
}

void read_with_qsettings(benchmark::State & state, std::size_t size, double part)
{
    job const work(size, part);
    QString const name = QString::fromStdString(work.file.name());
    QString const entry = QString::fromStdString(work.section + "/" + key);
    QString const value = QString::fromStdString(expected);
    timespec times[2] = {{1'000'000'000, 0}, {1'000'000'000, 0}};
    for (auto _ : state) {
        ++times[1].tv_sec;
        ::utimensat(AT_FDCWD, work.file.name().c_str(), times, 0);
        QSettings const settings(name, QSettings::IniFormat);
        check(state, settings.value(entry).toString() == value);
    }
}

void read_with_glib(benchmark::State & state, std::size_t size, double part)
{
    job const work(size, part);
    for (auto _ : state) {
        GKeyFile * const file = g_key_file_new();
        g_key_file_load_from_file(file, work.file.name().c_str(), G_KEY_FILE_NONE, nullptr);
        char * const value
            = g_key_file_get_string(file, work.section.c_str(), key.c_str(), nullptr);
        check(state, value != nullptr && expected == value);
        g_free(value);
        g_key_file_free(file);
    }
}

void read_with_inih(benchmark::State & state, std::size_t size, double part)
{
    struct search {
        job const work;
        std::string found{};
    } sought{job(size, part)};
    for (auto _ : state) {
        sought.found.clear();
        ini_parse(
            sought.work.file.name().c_str(),
            [](void * data, char const * section, char const * name, char const * value) {
                auto & to = *static_cast<search *>(data);
                if (to.work.section == section && key == name) {
                    to.found = value;
                }
                return 1;
            },
            &sought);
        check(state, sought.found == expected);
    }
}

void read_with_simpleini(benchmark::State & state, std::size_t size, double part)
{
    job const work(size, part);
    for (auto _ : state) {
        CSimpleIniA file;
        file.LoadFile(work.file.name().c_str());
        check(state, expected == file.GetValue(work.section.c_str(), key.c_str(), ""));
    }
}

#define READ(function, title, whose, size, part)                                                   \
    BENCHMARK_CAPTURE(function, title, size, part)->Name("profile read, " title "/" whose)
#define READS(title, size, part)                                                                   \
    READ(read_with_zel, title, "zel", size, part);                                                 \
    READ(read_with_qsettings, title, "QSettings", size, part);                                     \
    READ(read_with_glib, title, "GKeyFile", size, part);                                           \
    READ(read_with_inih, title, "inih", size, part);                                               \
    READ(read_with_simpleini, title, "SimpleIni", size, part)

READS("10 KiB", 10 << 10, 0.5);
READS("middle of 1 MiB", 1 << 20, 0.5);
READS("end of 1 MiB", 1 << 20, 1);

void write_with_zel(benchmark::State & state, std::size_t size, double part)
{
    job const work(size, part);
    zel::ini_file file(zel::from_native(work.file.name()).c_str());
    zel::string const section(work.section), name(key);
    std::int32_t value = 0;
    for (auto _ : state) {
        file.write_int(section, name, ++value);
    }
    check(state, file.read_int(section, name, 0) == value);
}

void write_with_qsettings(benchmark::State & state, std::size_t size, double part)
{
    job const work(size, part);
    QString const entry = QString::fromStdString(work.section + "/" + key);
    int value = 0;
    for (auto _ : state) {
        QSettings settings(QString::fromStdString(work.file.name()), QSettings::IniFormat);
        settings.setValue(entry, ++value);
        settings.sync();
    }
}

void write_with_glib(benchmark::State & state, std::size_t size, double part)
{
    job const work(size, part);
    int value = 0;
    for (auto _ : state) {
        GKeyFile * const file = g_key_file_new();
        g_key_file_load_from_file(file, work.file.name().c_str(), G_KEY_FILE_KEEP_COMMENTS,
                                  nullptr);
        g_key_file_set_integer(file, work.section.c_str(), key.c_str(), ++value);
        check(state, g_key_file_save_to_file(file, work.file.name().c_str(), nullptr) != 0);
        g_key_file_free(file);
    }
}

// Time that passes, since most of it is spent waiting for the disk.
#define WRITE(function, whose)                                                                     \
    BENCHMARK_CAPTURE(function, , 10 << 10, 0.5)                                                   \
        ->Name("profile write, 10 KiB/" whose)                                                     \
        ->UseRealTime()

WRITE(write_with_zel, "zel");
WRITE(write_with_qsettings, "QSettings");
WRITE(write_with_glib, "GKeyFile");

} // namespace
