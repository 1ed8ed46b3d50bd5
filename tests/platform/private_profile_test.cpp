// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/private_profile.h"

#include "tests/support/processes.h"
#include "tests/support/scratch_folder.h"
#include "zel/platform/last_error.h"
#include "zel/platform/profiles/profile_editor.h"
#include "zel/platform/profiles/profile_text.h"
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <vector>

// The host's calls of the functions under test come here first (linked with --wrap).
namespace faults {

std::atomic<int> calls_left{-1}; // until one fails; negative for none
std::atomic<int> reason{EIO};
std::atomic<std::size_t> longest_write{static_cast<std::size_t>(-1)};
std::atomic<mode_t> made_with{0}; // the mode of the last file that was made

bool hits() { return calls_left >= 0 && calls_left-- == 0; }

} // namespace faults

#define WRAPPED(name, parameters, arguments)                                                       \
    int __real_##name parameters;                                                                  \
    int __wrap_##name parameters                                                                   \
    {                                                                                              \
        return faults::hits() ? (errno = faults::reason, -1) : __real_##name arguments;            \
    }

extern "C" {
int __real_open(char const * name, int flags, mode_t mode);
int __wrap_open(char const * name, int flags, mode_t mode)
{
    faults::made_with = (flags & O_CREAT) != 0 ? mode : faults::made_with.load();
    return faults::hits() ? (errno = faults::reason, -1) : __real_open(name, flags, mode);
}
WRAPPED(fcntl, (int file, int command, void * argument), (file, command, argument))
WRAPPED(flock, (int file, int operation), (file, operation))
WRAPPED(fstat, (int file, struct stat * facts), (file, facts))
WRAPPED(ftruncate, (int file, off_t size), (file, size))
WRAPPED(fchmod, (int file, mode_t mode), (file, mode))
WRAPPED(fdatasync, (int file), (file))
WRAPPED(renameat2, (int a, char const * from, int b, char const * to, unsigned int flags),
        (a, from, b, to, flags))
ssize_t __real_read(int file, void * bytes, size_t size);
ssize_t __wrap_read(int file, void * bytes, size_t size)
{
    return faults::hits() ? (errno = faults::reason, -1) : __real_read(file, bytes, size);
}
ssize_t __real_pwrite(int file, void const * bytes, size_t size, off_t position);
ssize_t __wrap_pwrite(int file, void const * bytes, size_t size, off_t position)
{
    return faults::hits()
        ? (errno = faults::reason, -1)
        : __real_pwrite(file, bytes, std::min<size_t>(size, faults::longest_write), position);
}
}

namespace {

using namespace zel::platform;

std::string const missing = "<missing>";

std::string read(std::string const & file, std::string_view section, std::string_view name,
                 std::uint32_t size = 5000)
{
    std::vector<char> buffer(size);
    auto const count
        = get_private_profile_string(section, name, missing, buffer.data(), size, file.c_str());
    EXPECT_EQ(buffer[count], '\0');
    return {buffer.data(), count};
}

bool write(std::string const & file, std::string_view section, std::string_view name,
           std::string_view value)
{
    return write_private_profile_string(section, name, value, file.c_str());
}

/// The answer when the text comes in blocks of that size.
std::string find_in_blocks(std::string_view text, std::string_view section, std::string_view name,
                           std::size_t block)
{
    char buffer[5000];
    text_value value(buffer, sizeof buffer);
    entry_finder finder(section, name, value);
    while (!text.empty() && !finder.feed(text.substr(0, block))) {
        text.remove_prefix(std::min(block, text.size()));
    }
    return finder.found() ? std::string(buffer, value.finish()) : missing;
}

TEST(private_profile, reads_what_the_grammar_says)
{
    std::string const nul(1, '\0');
    // clang-format off
    struct { std::string text, section, name, value; } const rows[] = {
        {"[s]\nk=v\n", "s", "k", "v"},
        {"[s]\nk=v", "s", "k", "v"},
        {"[S]\nKey=V", "s", "kEY", "V"},
        {"[\xC4]\nk=v", "\xE4", "k", missing}, // letters of ASCII only
        {"", "s", "k", missing}, {"[", "", "", missing}, {"[s]", "s", "k", missing},
        {"\n\n[s]\n\n\nk=v", "s", "k", "v"},
        {"k=0\n[s]\nk=1\n[t]\nk=2", "", "k", missing}, // in front of every section
        {"k=0\n[s]\nk=1\n[t]\nk=2", "t", "k", "2"},
        // line ends
        {"[s]\r\nk=v\r\nl=w\r\n", "s", "l", "w"}, {"[s]\rk=v\rl=w\r", "s", "l", "w"},
        {"[s]\r\r\n\nk=v\n\r", "s", "k", "v"}, {"[s]\n=\rk=v", "s", "k", "v"},
        // blanks
        {" \t\v[ \t\vs \t\v]\n \t\vk \t\v= \t\va \t b \t\v\n", "s", "k", "a \t b"},
        {"[s]\nk=v", " s  ", "  k ", "v"}, {"[s]\nk=v", "\ts", "k", missing},
        {"[s]\nk=v", "s", "k\t", missing}, {"[s]\nk\t=v", "s", "k\t", missing},
        {"[a b]\nc d=v", "a b", "c d", "v"}, {"[a b]\nc d=v", "a", "c", missing},
        {"[a\t]\nk=v", "a\t", "k", missing}, {"[s]\nk=\x0C v\x0C ", "s", "k", "\x0C v\x0C"},
        // quotes
        {"[s]\nk=\"v\"", "s", "k", "v"}, {"[s]\nk=' v '", "s", "k", " v "},
        {"[s]\nk=\"v'", "s", "k", "\"v'"}, {"[s]\nk=\"", "s", "k", "\""}, {"[s]\nk=\"\"", "s", "k", ""},
        {"[s]\nk=\"\"v\"\"", "s", "k", "\"v\""}, {"[s]\nk=a\"b\"", "s", "k", "a\"b\""},
        {"[s]\nk= \"v\" \t\n", "s", "k", "v"}, {"[s]\nk=\"a\" \"b\"", "s", "k", "a\" \"b"},
        {"['s']\n\"k\"=v", "s", "k", missing}, {"['s']\n\"k\"=v", "'s'", "\"k\"", "v"},
        // comments, and what is none
        {"[s]\n;k=1\n ; k=2\nk=3;4\n", "s", "k", "3;4"}, {"[s]\n#k=1\n", "s", "#k", "1"},
        {"[s]\n;k=1", "s", ";k", missing}, {";[s]\nk=v", "s", "k", missing},
        // heads
        {"[s]]x\nk=v", "s", "k", "v"}, {"[s] k=1\nk=2", "s", "k", "2"}, {"[s\nk=v", "s", "k", "v"},
        {"[[s]\nk=v", "[s", "k", "v"}, {"[a[s]\nk=v", "s", "k", missing}, {"x[s]\nk=v", "s", "k", missing},
        {"[]\n=v", "", "", "v"}, {"[ ]\n =v", "  ", " ", "v"}, {"[s]\n[k]=1\n", "s", "[k]", missing},
        {"[s]\n[t\nk=v", "s", "k", missing}, {"[ss]\nk=1\n[s]\nk=2", "s", "k", "2"},
        {"[s]\nk=1\n[ss]\nk=2", "ss", "k", "2"}, {"[a]b]\nk=1\n", "a]b", "k", missing},
        // the first of a name
        {"[s]\nk=1\nk=2", "s", "K", "1"}, {"[s]\nk=1\n[s]\nl=2", "s", "l", missing},
        {"[s]\nk=1\n[t]\n[S]\nk=2", "s", "k", "1"},
        // entries
        {"[s]\nk\nk=v", "s", "k", "v"}, {"[s]\nk=a=b", "s", "k", "a=b"}, {"[s]\nkk=1\nk=2", "s", "k", "2"},
        {"[s]\nk=1\nkk=2", "s", "kk", "2"}, {"[s]\nk=\nl=", "s", "k", ""}, {"[s]\nk= \t", "s", "k", ""},
        // a byte-order mark
        {"\xEF\xBB\xBF[s]\nk=v", "s", "k", "v"}, {"\xEF\xBB\xBF \t[s]\nk=v", "s", "k", "v"},
        {"\xEF\xBB[s]\nk=v", "s", "k", missing}, {"\n\xEF\xBB\xBF[s]\nk=v", "s", "k", missing},
        {"\xEF\xBB\xBF", "s", "k", missing}, {"\xEF\xBB\xBF\xEF\xBB\xBF[s]\nk=v", "s", "k", missing},
        // any byte
        {nul + "\n[s" + nul + "]\nk" + nul + "=v" + nul + "w", "s" + nul, "k" + nul, "v" + nul + "w"},
        {std::string("[s]\n").append(100'000, 'x') + "=1\nk=" + std::string(100'000, ' ') + "v", "s", "k", "v"},
        {std::string("[").append(70'000, ' ') + "s]\n" + std::string(70'000, '[') + "\nk=v", "s", "k", missing},
        {std::string("[s]\n").append(40'000, 'K') + " =v", "s", std::string(40'000, 'k'), "v"},
    };
    // clang-format on
    scratch_folder const folder;
    for (auto const & row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text.substr(0, 60)));
        put(folder.file("f"), row.text);
        EXPECT_EQ(read(folder.file("f"), row.section, row.name), row.value);
        for (std::size_t const block : {1U, 2U, 3U, 5U, 16U, 17U}) {
            EXPECT_EQ(find_in_blocks(row.text, row.section, row.name, block), row.value) << block;
        }
    }
}

TEST(private_profile, cuts_values_and_defaults_to_the_buffer)
{
    scratch_folder const folder;
    put(folder.file("f"), "[s]\nk=12345\nq='12345'\nb=123   4\n");
    // clang-format off
    struct { char const * name; std::uint32_t size; char const * value; } const rows[] = {
        {"k", 6, "12345"}, {"k", 5, "1234"},    {"k", 1, ""},
        {"q", 6, "12345"}, {"q", 5, "1234"},    {"q", 2, "1"},
        {"b", 6, "123  "}, {"none", 5, "<mis"}, {"none", 1, ""},
    };
    // clang-format on
    for (auto const & row : rows) {
        EXPECT_EQ(read(folder.file("f"), "s", row.name, row.size), row.value)
            << row.name << row.size;
    }
    char untouched = 'x';
    EXPECT_EQ(get_private_profile_string("s", "k", "", &untouched, 0, folder.file("f").c_str()),
              0U);
    EXPECT_EQ(untouched, 'x');
    EXPECT_EQ(get_private_profile_string("s", "none", "  d ", &untouched, 1, ""), 0U);
}

TEST(private_profile, writes_one_line_and_leaves_every_other_byte)
{
    // clang-format off
    struct { std::string before; char const * section, * name, *value; std::string after; } const rows[] = {
        {"", "s", "k", "v", "[s]\nk=v\n"},
        {"", "", "", "", "[]\n=\n"}, {"", " s ", " k ", " v ", "[s]\nk= v \n"},
        {"[s]\nk=old\n", "s", "k", "", "[s]\nk=\n"},
        {"[s]\nKey=old\n", "S", "KEY", "new", "[s]\nKey=new\n"}, // its spelling stays
        {"\t[ s ] x\n k = 'old' \nj\n", "s", "k", "new", "\t[ s ] x\n k = new\nj\n"},
        {"[s]\nk =\t 1 \n", "s", "k", " 2 ", "[s]\nk = 2 \n"}, {"[s]\nk = 1 \n", "s", "k", " 1 ", "[s]\nk = 1 \n"},
        {"[s]\nk=", "s", "k", "v", "[s]\nk=v"}, {"[s]\nk=1\nk=2", "s", "k", "3", "[s]\nk=3\nk=2"},
        // a new entry goes behind the last one
        {"[s]\na=1\n\n;c\n[t]\nb=2\n", "s", "k", "v", "[s]\na=1\nk=v\n\n;c\n[t]\nb=2\n"},
        {"[s]\n;c\n\n[t]\n", "s", "k", "v", "[s]\nk=v\n;c\n\n[t]\n"},
        {"[s]\n[t]\n[s]\n", "s", "k", "v", "[s]\nk=v\n[t]\n[s]\n"},
        {"[s]\na=1\n;k=2\nnoise", "s", "k", "v", "[s]\na=1\nk=v\n;k=2\nnoise"},
        // a new section goes to the end
        {"[s]\na=1\n\n", "t", "k", "v", "[s]\na=1\n\n[t]\nk=v\n"}, {"noise", "t", "k", "v", "noise\n[t]\nk=v\n"},
        {"a[s]\n", "s", "k", "v", "a[s]\n[s]\nk=v\n"},
        // line ends are those of the line in front; a last line without one gets it
        {"[s]\r\na=1\r\n", "s", "k", "v", "[s]\r\na=1\r\nk=v\r\n"}, {"[s]\ra=1\r", "t", "k", "v", "[s]\ra=1\r[t]\rk=v\r"},
        {"[s]\r\na=1", "s", "k", "v", "[s]\r\na=1\r\nk=v\r\n"}, {"[s]\r\na=1", "t", "k", "v", "[s]\r\na=1\r\n[t]\r\nk=v\r\n"},
        {"[s]\r\na=1\nb=2", "s", "a", "v", "[s]\r\na=v\nb=2"}, {"[s]", "s", "k", "v", "[s]\nk=v\n"},
        {"[s]\na=1\r\n", "s", "k", "v", "[s]\na=1\r\nk=v\r\n"},
        // a byte-order mark
        {"\xEF\xBB\xBF", "s", "k", "v", "\xEF\xBB\xBF[s]\nk=v\n"},
        {"\xEF\xBB\xBF[s]\nk=1", "s", "k", "v", "\xEF\xBB\xBF[s]\nk=v"},
        {"\xEF\xBB\xBFx", "s", "k", "v", "\xEF\xBB\xBFx\n[s]\nk=v\n"},
    };
    // clang-format on
    scratch_folder const folder;
    for (auto const & row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.before));
        put(folder.file("f"), row.before);
        EXPECT_TRUE(write(folder.file("f"), row.section, row.name, row.value));
        EXPECT_EQ(get(folder.file("f")), row.after);
        EXPECT_EQ(folder.entries(), 1);
    }
    put(folder.file("f"), "[s]\na=1\nb=2\nB=3\n");
    EXPECT_TRUE(write_private_profile_struct("s", "b", nullptr, 1, folder.file("f").c_str()));
    EXPECT_TRUE(write_private_profile_struct("s", "none", nullptr, 1, folder.file("f").c_str()));
    EXPECT_EQ(get(folder.file("f")), "[s]\na=1\nB=3\n");
}

TEST(private_profile, refuses_what_would_be_another_entry)
{
    std::string const nul(1, '\0');
    // clang-format off
    struct { std::string section, name, value; } const rows[] = {
        {"a]", "k", "v"},  {"a\n", "k", "v"},     {"\ta", "k", "v"}, {"a\v", "k", "v"},
        {nul, "k", "v"},   {"s", "a=b", "v"},     {"s", ";k", "v"},  {"s", " [k", "v"},
        {"s", "k\r", "v"}, {"s", "k\t", "v"},     {"s", nul, "v"},   {"s", "k", "a\nb"},
        {"s", "k", "a\r"}, {"s", "k", "a" + nul},
    };
    // clang-format on
    scratch_folder const folder;
    put(folder.file("f"), "[s]\nk=1\n");
    for (auto const & row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.section + "/" + row.name + "/" + row.value));
        EXPECT_FALSE(write(folder.file("f"), row.section, row.name, row.value));
        EXPECT_FALSE(write(folder.file("new"), row.section, row.name, row.value));
        EXPECT_EQ(folder.entries(), 1);
        private_profile_entry const both[] = {{row.section, row.name, row.value}, {"s", "k", "1"}};
        EXPECT_FALSE(write_private_profile_entries(both, folder.file("other").c_str()));
        EXPECT_EQ(get(folder.file("other")), "[s]\nk=1\n"); // the sound one
        std::filesystem::remove(folder.file("other"));
    }
    EXPECT_EQ(get(folder.file("f")), "[s]\nk=1\n");
}

// Names in other cases, removals and repetitions: the text is that of single writes.
TEST(private_profile, writes_many_entries_as_one_after_the_other)
{
    std::mt19937 random(7);
    auto const pick = [&](std::initializer_list<char const *> words) {
        return words.begin()[random() % words.size()];
    };
    for (int round = 0; round < 2000; ++round) {
        std::string start;
        for (auto lines = random() % 12; lines > 0; --lines) {
            start += pick({"[a]", "[B]", "[c", "x=1", " Y = 2 ", ";c", "", "noise", "=3"});
            start += pick({"\n", "\n", "\r\n", "\r"});
        }
        start += pick({"", "", "z=4", "[b]"});
        std::vector<private_profile_entry> entries;
        for (auto count = random() % 10; count > 0; --count) {
            entries.push_back({pick({"a", "A", "b", "c", "d", ""}),
                               pick({"x", "X", "y", "z", "w", "", ";"}),
                               pick({"", "1", "'2'", " 3 ", "\t"}),
                               static_cast<private_profile_entry::form>(random() % 3)});
        }
        std::string single = start;
        profile_editor together(start);
        for (auto const & entry : entries) {
            profile_editor alone(single);
            EXPECT_EQ(alone.apply(entry), together.apply(entry));
            single = alone.text();
        }
        ASSERT_EQ(together.text(), single) << testing::PrintToString(start);
    }
}

TEST(private_profile, tells_blocks_from_other_texts)
{
    // clang-format off
    struct { char const * value; bool sound; std::uint32_t size; } const rows[] = {
        {"00", true, 0},       {"0101", true, 1},    {"01FF00", true, 2},   {"01ff00", true, 2},
        {"\"0101\"", true, 1}, {" 0101\t", true, 1}, {"", false, 0},        {"01", false, 0},
        {"0", false, 0},       {"010", false, 0},    {"0102", false, 0},    {"0G01", false, 0},
        {"01 01", false, 0},   {"'0101", false, 0},  {"'0101\"", false, 0}, {"'01'01'", false, 0},
        {"' 0101'", false, 0},
    };
    // clang-format on
    scratch_folder const folder;
    std::string const file = folder.file("f");
    for (auto const & row : rows) {
        SCOPED_TRACE(row.value);
        put(file, std::string("[s]\nk=") + row.value);
        std::uint32_t size = 99;
        EXPECT_EQ(get_private_profile_struct_size("s", "k", size, file.c_str()), row.sound);
        EXPECT_EQ(size, row.size);
        for (std::uint32_t wanted = 0; wanted < 4; ++wanted) {
            std::string bytes(4, 'x');
            set_last_error(0);
            bool const got
                = get_private_profile_struct("s", "k", bytes.data(), wanted, file.c_str());
            EXPECT_EQ(got, row.sound && wanted == row.size);
            EXPECT_EQ(last_error() == error_bad_length, row.sound && wanted != row.size);
            EXPECT_EQ(bytes == "xxxx", !got || wanted == 0);
        }
    }
    unsigned char const block[] = {0xAB, 0x00, 0xFF};
    EXPECT_TRUE(write_private_profile_struct("s", "k", block, 3, file.c_str()));
    EXPECT_EQ(get(file), "[s]\nk=AB00FFAA");
    EXPECT_FALSE(get_private_profile_struct("s", "k", nullptr, 0xFFFFFFFF, file.c_str()));
    EXPECT_EQ(last_error(), error_bad_length);
}

TEST(private_profile, takes_what_is_no_file_of_settings_for_missing)
{
    scratch_folder const folder;
    std::filesystem::create_directory(folder.file("folder"));
    ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0666), 0);
    put(folder.file("huge"), "[s]\nk=v\n");
    std::filesystem::resize_file(folder.file("huge"), (1LL << 30) + 1);
    std::filesystem::create_symlink("circle", folder.file("circle"));
    for (char const * name :
         {"folder", "pipe", "huge", "circle", "none/f", "huge/f", "", "/dev/zero"}) {
        std::string const file = *name == '\0' || *name == '/' ? name : folder.file(name);
        EXPECT_EQ(read(file, "s", "k"), missing) << name;
        EXPECT_NE(last_error(), 0U);
        EXPECT_FALSE(write(file, "s", "k", "v")) << name;
    }
    EXPECT_EQ(folder.entries(), 4);
    put(folder.file("locked"), "[s]\nk=v\n");
    ::chmod(folder.file("locked").c_str(), 0444);
    EXPECT_FALSE(write(folder.file("locked"), "s", "k", "w")); // read-only, for everyone
    ::chmod(folder.name().c_str(), 0777);
    ::chmod(folder.file("locked").c_str(), 0);
    EXPECT_TRUE(
        holds_for_ordinary_user([&] { return read(folder.file("locked"), "s", "k") == missing; })
        || ::geteuid() != 0);
}

TEST(private_profile, keeps_the_mode_and_the_links)
{
    scratch_folder const folder;
    struct stat before, after;
    put(folder.file("f"), "[s]\nk=1\n");
    ::chmod(folder.file("f").c_str(), 0640);
    std::filesystem::create_directory(folder.file("sub"));
    std::filesystem::create_symlink("../f", folder.file("sub/link"));
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(folder.file("f").c_str(), 65534, 65534), 0);
    }
    ::stat(folder.file("f").c_str(), &before);
    EXPECT_TRUE(write(folder.file("sub/link"), "s", "k", "2"));
    EXPECT_EQ(faults::made_with, 0600U); // or others could open it before it holds secrets
    EXPECT_EQ(get(folder.file("f")), "[s]\nk=2\n");
    EXPECT_TRUE(std::filesystem::is_symlink(folder.file("sub/link")));
    ::stat(folder.file("f").c_str(), &after);
    EXPECT_NE(before.st_ino, after.st_ino);
    EXPECT_EQ(before.st_mode, after.st_mode);
    EXPECT_EQ(before.st_uid, after.st_uid);
    EXPECT_EQ(before.st_gid, after.st_gid);

    // A second name of the same file sees the change too.
    std::filesystem::create_hard_link(folder.file("f"), folder.file("twin"));
    for (char const * value : {"longer than before", "x", ""}) {
        EXPECT_TRUE(write(folder.file("f"), "s", "k", value));
        EXPECT_EQ(get(folder.file("twin")), std::string("[s]\nk=") + value + "\n");
    }

    // A link that leads nowhere yet leads to a new file afterwards.
    std::filesystem::create_symlink("new", folder.file("ahead"));
    EXPECT_TRUE(write(folder.file("ahead"), "s", "k", "1"));
    EXPECT_EQ(get(folder.file("new")), "[s]\nk=1\n");
    EXPECT_EQ(faults::made_with, 0666U);

    EXPECT_TRUE(write(folder.file("new"), "s", "k", "1")); // as it is already
    struct stat const known = (::stat(folder.file("new").c_str(), &before), before);
    EXPECT_TRUE(write(folder.file("new"), "s", "k", "1"));
    ::stat(folder.file("new").c_str(), &after);
    EXPECT_EQ(known.st_ino, after.st_ino);
}

TEST(private_profile, writes_into_the_file_where_the_folder_admits_no_other)
{
    scratch_folder const folder;
    put(folder.file("f"), "[s]\nk=1\n");
    ::chmod(folder.file("f").c_str(), 0666);
    ::chmod(folder.name().c_str(), 0555);
    EXPECT_TRUE(holds_for_ordinary_user([&] {
        return write(folder.file("f"), "s", "k", "longer")
            && !write(folder.file("new"), "s", "k", "1") && last_error() == error_access_denied;
    }));
    EXPECT_EQ(get(folder.file("f")), "[s]\nk=longer\n");
    EXPECT_EQ(folder.entries(), 1);
    ::chmod(folder.name().c_str(), 0755);
}

TEST(private_profile, waits_for_no_lock_of_another_program_for_ever)
{
    scratch_folder const folder;
    std::string const file = folder.file("f");
    put(file, "[s]\nk=1\n");
    int const other = ::open(file.c_str(), O_RDWR | O_CLOEXEC, 0);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    EXPECT_TRUE(write(file, "s", "k", "2"));
    EXPECT_EQ(read(file, "s", "k"), "2");
    ::close(other);
    child_process holder([&] {
        struct flock whole = {};
        whole.l_type = F_WRLCK;
        int const held = ::open(file.c_str(), O_RDWR | O_CLOEXEC, 0);
        return ::fcntl(held, F_SETLK, &whole) == 0 && ::raise(SIGSTOP) == 0;
    });
    int status = 0;
    ASSERT_EQ(::waitpid(holder.id(), &status, WUNTRACED), holder.id());
    ASSERT_TRUE(WIFSTOPPED(status));
    EXPECT_EQ(read(file, "s", "k"), "2");
    EXPECT_FALSE(write(file, "s", "k", "3"));
    EXPECT_EQ(last_error(), error_sharing_violation);
    holder.send(SIGCONT);
    EXPECT_EQ(holder.result(), 0);
    EXPECT_TRUE(write(file, "s", "k", "3"));
}

// Each call of the host's in turn fails, for a file that is replaced, a new one, and one that is
// overwritten.
TEST(private_profile, keeps_the_old_content_whichever_step_fails)
{
    scratch_folder const folder;
    std::string const file = folder.file("f");
    std::string const long_text = std::string("[s]\na=").append(3000, 'a') + "\nz=1\n";
    // clang-format off
    struct { std::string before; bool twin; char const * name; } const rows[] = {
        {"", false, "a"},
        {long_text, false, "b"},
        {long_text, true, "b"},
        {long_text, true, "a"},
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(row.before.substr(0, 8) + (row.twin ? " twin " : " ") + row.name);
        std::string after = "?";
        for (std::size_t const part : {std::size_t{7}, static_cast<std::size_t>(-1)}) {
            for (int n = 0, ended = 0; ended == 0; ++n) {
                ASSERT_LT(n, 5000);
                std::filesystem::remove(folder.file("twin"));
                std::filesystem::remove(file);
                if (!row.before.empty()) {
                    put(file, row.before);
                }
                if (row.twin) {
                    std::filesystem::create_hard_link(file, folder.file("twin"));
                }
                faults::longest_write = part;
                faults::reason = n % 2 == 0 ? ENOSPC : EIO;
                faults::calls_left = n;
                bool const written = write(file, "s", row.name, "value");
                ended = faults::calls_left.exchange(-1) >= 0 ? 1 : 0;
                faults::longest_write = static_cast<std::size_t>(-1);
                if (written) {
                    after = get(file);
                    EXPECT_EQ(read(file, "s", row.name), "value");
                } else {
                    EXPECT_EQ(get(file), row.before.empty() ? "<no file>" : row.before) << n;
                    EXPECT_NE(last_error(), 0U);
                }
                EXPECT_EQ(folder.entries(), (written || !row.before.empty()) + row.twin) << n;
            }
            EXPECT_EQ(read(file, "s", row.name), "value"); // no call was left to fail
        }
    }
}

TEST(private_profile, loses_no_entry_of_any_writer)
{
    scratch_folder const folder(fast_place); // 4,000 flushes would take a slow disk a minute
    constexpr int processes = 4, threads = 4, keys = 250;
    std::vector<child_process> children;
    for (int process = 0; process < processes; ++process) {
        children.emplace_back([&, process] {
            std::atomic<int> lost = 0;
            std::vector<std::thread> writers;
            for (int thread = 0; thread < threads; ++thread) {
                writers.emplace_back([&, thread] {
                    for (int key = 0; key < keys; ++key) {
                        auto const name = std::to_string((process * threads + thread) * keys + key);
                        lost += !write(folder.file("f"), key % 2 == 0 ? "even" : "odd", name, "v");
                    }
                });
            }
            for (auto & writer : writers) {
                writer.join();
            }
            return lost == 0;
        });
    }
    for (auto & child : children) {
        EXPECT_EQ(child.result(), 0);
    }
    int found = 0;
    for (int name = 0; name < processes * threads * keys; ++name) {
        found
            += read(folder.file("f"), name % 2 == 0 ? "even" : "odd", std::to_string(name)) == "v";
    }
    EXPECT_EQ(found, processes * threads * keys);
    EXPECT_EQ(folder.entries(), 1);
}

TEST(private_profile, is_whole_after_a_kill_and_clean_after_the_next_write)
{
    scratch_folder const folder;
    std::string const file = folder.file("f");
    std::string const filler(20'000, 'x');
    auto const write_state = [&](std::string const & value) {
        private_profile_entry const entries[]
            = {{"s", "first", value}, {"t", "filler", filler}, {"u", "last", value}};
        return write_private_profile_entries(entries, file.c_str());
    };
    std::mt19937 random(3);
    for (int round = 0; round < 200; ++round) {
        if (round % 4 == 0) {
            std::filesystem::remove(file); // so that some die while they make it
        }
        child_process child([&] {
            for (int n = 0; write_state(std::to_string(n)); ++n) { }
            return false;
        });
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 4000));
        child.send(SIGKILL);
        ASSERT_TRUE(WIFSIGNALED(child.status())) << "a write failed";
        ASSERT_EQ(read(file, "s", "first"), read(file, "u", "last"));
        ASSERT_TRUE(!std::filesystem::exists(file) || read(file, "t", "filler", 30'000) == filler);
        ASSERT_TRUE(write_state("next"));
        ASSERT_EQ(folder.entries(), 1);
    }
}

TEST(private_profile, shows_readers_whole_states_only)
{
    for (bool const overwritten : {false, true}) {
        scratch_folder const folder(fast_place);
        std::string const file = folder.file("f");
        auto const value = [](int n) {
            return std::string(500 + static_cast<std::size_t>(n) % 7 * 300,
                               static_cast<char>('a' + n % 26));
        };
        put(file, std::string("[s]\nf=").append(32'252, 'f') + "\nk=" + value(0) + "\nz=end\n");
        ASSERT_EQ(get(file).size(), 32'768U); // whole blocks, so that an end shows only behind them
        if (overwritten) {
            std::filesystem::create_hard_link(file, folder.file("twin"));
        }
        std::atomic<bool> over = false;
        std::thread writer([&] {
            for (int n = 1; n <= 5000; ++n) {
                EXPECT_TRUE(write(file, "s", "k", value(n)));
            }
            over = true;
        });
        int reads = 0, torn = 0;
        for (; !over || reads == 0; ++reads) {
            std::string const seen = read(file, "s", "k");
            torn += seen.size() < 500 || seen.find_first_not_of(seen.front()) != seen.npos
                || (seen.size() - 500) % 300 != 0;
            torn += read(file, "s", "z") != "end";
        }
        writer.join();
        EXPECT_EQ(torn, 0) << "of " << reads;
    }
}

} // namespace
