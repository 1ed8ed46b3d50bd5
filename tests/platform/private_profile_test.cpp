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
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <thread>
#include <utility>
#include <vector>

// The host's calls of the functions under test come here first (linked with --wrap).
namespace faults {

constexpr int kills = -1; // a `reason` that ends the process
constexpr off_t no_limit = 1LL << 40;
std::atomic<int> calls_left{-1}; // until one fails; negative for none
std::atomic<int> reason{EIO};
std::atomic<off_t> longest_write{no_limit};
std::atomic<off_t> room{no_limit}; // that a file may take
std::atomic<mode_t> made_with{0}; // the mode of the last file that was made
std::atomic<bool> no_locks{false};
std::atomic<bool> no_sleep{false}; // time passes at once
std::function<void()> before_place; // is taken; called once, as the next one
std::function<void()> before_write;

bool hit(bool fails_by_itself = false, int error = 0, std::function<void()> * call = nullptr)
{
    if (call != nullptr && *call) {
        std::exchange(*call, nullptr)();
    }
    bool const fails = fails_by_itself || (calls_left >= 0 && calls_left-- == 0);
    if (fails && reason == kills) {
        ::raise(SIGKILL);
    }
    errno = fails ? (fails_by_itself ? error : reason.load()) : errno;
    return fails;
}

} // namespace faults

// clang-format off
#define WRAPPED(type, name, parameters, arguments, ...)                                            \
    type __real_##name parameters;                                                                 \
    type __wrap_##name parameters { return faults::hit(__VA_ARGS__) ? -1 : __real_##name arguments; }
extern "C" {
WRAPPED(int, open, (char const * a, int b, mode_t c), (a, b, c))
WRAPPED(int, openat, (int a, char const * b, int c, mode_t d), (a, b, c, (faults::made_with = d)))
WRAPPED(int, fcntl, (int a, int b, void * c), (a, b, c), faults::no_locks, ENOLCK)
WRAPPED(int, flock, (int a, int b), (a, b), faults::no_locks, ENOLCK)
WRAPPED(int, fstat, (int a, struct stat * b), (a, b))
WRAPPED(int, fstatat, (int a, char const * b, struct stat * c, int d), (a, b, c, d))
WRAPPED(int, ftruncate, (int a, off_t b), (a, b))
WRAPPED(int, fchmod, (int a, mode_t b), (a, b))
WRAPPED(int, fdatasync, (int a), (a))
WRAPPED(int, nanosleep, (timespec const * a, timespec * b), (a, b), faults::no_sleep, EINTR)
WRAPPED(int, renameat, (int a, char const * b, int c, char const * d), (a, b, c, d))
WRAPPED(int, renameat2, (int a, char const * b, int c, char const * d, unsigned int e), (a, b, c, d, e),
        false, 0, &faults::before_place)
WRAPPED(ssize_t, read, (int a, void * b, size_t c), (a, b, c))
WRAPPED(ssize_t, pwrite, (int a, void const * b, size_t c, off_t d),
        (a, b, std::min(c, static_cast<size_t>(faults::longest_write)), d),
        d + static_cast<off_t>(c) > faults::room, ENOSPC, &faults::before_write)
}
// clang-format on

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
        {nul + "\n[s]" + nul + "\nk=v" + nul + "w", "s", "k", "v" + nul + "w"},
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
    std::string const file = folder.file("f");
    put(file, "[s]\nk=12345\nq='12345'\nb=123   4\n");
    // clang-format off
    struct { char const * name; std::uint32_t size; char const * value; } const rows[] = {
        {"k", 6, "12345"}, {"k", 5, "1234"},    {"k", 1, ""},
        {"q", 6, "12345"}, {"q", 5, "1234"},    {"q", 2, "1"},
        {"b", 6, "123  "}, {"none", 5, "<mis"}, {"none", 1, ""},
    };
    // clang-format on
    for (auto const & row : rows) {
        EXPECT_EQ(read(file, "s", row.name, row.size), row.value) << row.name << row.size;
    }
    char untouched = 'x';
    EXPECT_EQ(get_private_profile_string("s", "k", "", &untouched, 0, file.c_str()), 0U);
    EXPECT_EQ(untouched, 'x');
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
    // clang-format off
    struct { std::string section, name, value; } const rows[] = {
        {"a]", "k", "v"},  {"a\n", "k", "v"},     {"\ta", "k", "v"}, {"a\v", "k", "v"},
        {"s", "a=b", "v"}, {"s", ";k", "v"},      {"s", " [k", "v"}, {"s", "k\r", "v"},
        {"s", "k\t", "v"}, {"s", "k", "a\nb"},    {"s", "k", "a\r"},
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

// What is behind a NUL never matters.
TEST(private_profile, ends_every_text_at_its_first_nul)
{
    scratch_folder const folder;
    std::string const tail("\0]=\n", 4);
    EXPECT_TRUE(write(folder.file("f"), "s" + tail, "k" + tail, "v" + tail));
    EXPECT_EQ(get(folder.file("f")), "[s]\nk=v\n");
    EXPECT_EQ(read(folder.file("f"), "S" + tail, "K" + tail), "v");
    char buffer[9];
    EXPECT_EQ(get_private_profile_string("s", "none", "d" + tail, buffer, 9, ""), 1U);
    unsigned char const block[] = {0};
    EXPECT_TRUE(write_private_profile_struct("s", "k" + tail, block, 1, folder.file("f").c_str()));
    EXPECT_EQ(get(folder.file("f")), "[s]\nk=0000\n");
}

/// What the fuzzer of the grammar asserts. It ends the program with a line that says what does not
/// hold.
extern "C" int LLVMFuzzerTestOneInput(unsigned char const * data, std::size_t size);

TEST(private_profile, holds_what_the_fuzzer_asserts)
{
    std::mt19937 random(7);
    auto const pick = [&](std::initializer_list<char const *> words) {
        return std::string(words.begin()[random() % words.size()]);
    };
    for (int round = 0; round < 5000; ++round) {
        std::string input(1, static_cast<char>(random()));
        input += pick({"a", "A", "b", "c", "d", ""}) + "\xFF" + pick({"x", "X", "y", "z", "", ";"})
            + "\xFF" + pick({"", "1", "'2'", " 3 ", "\t"}) + "\xFF";
        for (auto lines = random() % 12; lines > 0; --lines) {
            input += pick({"[a]", "[B]", "[c", "x=1", " Y = 2 ", ";c", "", "noise", "=3"})
                + pick({"\n", "\n", "\r\n", "\r"});
        }
        input += pick({"", "", "z=4", "[b]"});
        LLVMFuzzerTestOneInput(reinterpret_cast<unsigned char const *>(input.data()), input.size());
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

struct stat facts_of(std::string const & file)
{
    struct stat facts = {};
    ::stat(file.c_str(), &facts);
    return facts;
}

std::string attribute(std::string const & file, char const * name)
{
    char value[200];
    ssize_t const size = ::getxattr(file.c_str(), name, value, sizeof value);
    return size < 0 ? "<none>" : std::string(value, static_cast<std::size_t>(size));
}

/// An access list that lets user 65534 do anything.
std::string access_list()
{
    std::uint16_t const entries[]
        = {2, 0,      1,      6,  0xFFFF, 0xFFFF, 2,      7,  65534, 0,      4,
           4, 0xFFFF, 0xFFFF, 16, 7,      0xFFFF, 0xFFFF, 32, 4,     0xFFFF, 0xFFFF};
    return std::string(reinterpret_cast<char const *>(entries), sizeof entries);
}

void give(std::string const & file, char const * name, std::string const & value)
{
    EXPECT_EQ(::setxattr(file.c_str(), name, value.data(), value.size(), 0), 0) << name;
}

TEST(private_profile, replaces_a_file_and_keeps_what_belongs_to_it)
{
    constexpr char const * list = "system.posix_acl_access";
    enum { plain, in_a_folder_with_a_list, with_a_list, with_an_attribute };
    scratch_folder const folder;
    for (int row : {plain, in_a_folder_with_a_list, with_a_list, with_an_attribute}) {
        SCOPED_TRACE(row);
        std::string const file = folder.file(std::string("f").append(std::to_string(row)));
        put(file, "[s]\nk=1\n");
        if (::geteuid() == 0) {
            ASSERT_EQ(::chown(file.c_str(), 65534, 65534), 0);
        }
        ::chmod(file.c_str(), 06640);
        if (row == in_a_folder_with_a_list) {
            give(folder.name(), "system.posix_acl_default", access_list());
        } else if (row == with_a_list) {
            give(file, list, access_list());
        } else if (row == with_an_attribute) {
            give(file, "user.origin", "somewhere");
        }
        std::string const listed = attribute(file, list);
        for (char const * value : {"2", "3"}) { // and is not changed in its place from then on
            struct stat const before = facts_of(file);
            EXPECT_TRUE(write(file, "s", "k", value));
            EXPECT_EQ(faults::made_with, 0600U); // or others could open it before it holds secrets
            struct stat const after = facts_of(file);
            EXPECT_NE(before.st_ino, after.st_ino);
            EXPECT_EQ(before.st_mode, after.st_mode);
            EXPECT_EQ(before.st_uid, after.st_uid);
            EXPECT_EQ(before.st_gid, after.st_gid);
            EXPECT_EQ(attribute(file, list), listed);
            EXPECT_EQ(attribute(file, "user.origin"),
                      row == with_an_attribute ? "somewhere" : "<none>");
            EXPECT_TRUE(write(file, "s", "k", value)); // as it is already
            EXPECT_EQ(facts_of(file).st_ino, after.st_ino);
        }
    }
}

TEST(private_profile, follows_links_as_the_host_does)
{
    scratch_folder const folder;
    put(folder.file("f"), "[s]\nk=1\n");
    std::filesystem::create_directory(folder.file("sub"));
    std::filesystem::create_symlink("../f", folder.file("sub/link"));
    EXPECT_TRUE(write(folder.file("sub/link"), "s", "k", "2"));
    EXPECT_EQ(get(folder.file("f")), "[s]\nk=2\n");
    EXPECT_TRUE(std::filesystem::is_symlink(folder.file("sub/link")));

    // A second name of the same file sees the change too.
    std::filesystem::create_hard_link(folder.file("f"), folder.file("twin"));
    for (char const * value : {"longer than before", "x", ""}) {
        EXPECT_TRUE(write(folder.file("f"), "s", "k", value));
        EXPECT_EQ(get(folder.file("twin")), std::string("[s]\nk=") + value + "\n");
    }

    // A link that leads nowhere yet leads to a new file afterwards, also when it comes at the last
    // moment; and to none when that could not be written.
    std::filesystem::create_symlink("new", folder.file("ahead"));
    faults::room = 0;
    EXPECT_FALSE(write(folder.file("ahead"), "s", "k", "1"));
    faults::room = faults::no_limit;
    EXPECT_EQ(get(folder.file("new")), "<no file>");
    EXPECT_TRUE(write(folder.file("ahead"), "s", "k", "1"));
    EXPECT_EQ(get(folder.file("new")), "[s]\nk=1\n");
    EXPECT_EQ(facts_of(folder.file("new")).st_mode & 0600, 0600U);
    faults::before_place
        = [&] { std::filesystem::create_symlink("late target", folder.file("late")); };
    EXPECT_TRUE(write(folder.file("late"), "s", "k", "1"));
    EXPECT_EQ(get(folder.file("late target")), "[s]\nk=1\n");

    if (std::string const on = get("/proc/sys/fs/protected_symlinks");
        on.starts_with('1') && ::geteuid() == 0) {
        ::chmod(folder.name().c_str(), 01777);
        EXPECT_TRUE(holds_for_ordinary_user([&] {
            return ::symlink("f", folder.file("planted").c_str()) == 0
                && ::symlink("none", folder.file("dangling").c_str()) == 0;
        }));
        EXPECT_FALSE(write(folder.file("planted"), "s", "k", "planted"));
        EXPECT_FALSE(write(folder.file("dangling"), "s", "k", "planted"));
        EXPECT_EQ(get(folder.file("f")), "[s]\nk=\n");
        EXPECT_EQ(get(folder.file("none")), "<no file>");
    }
}

// Under the name of the temporary file is something that a killed writer of another user left, or
// that has nothing to do with it.
TEST(private_profile, writes_whatever_has_the_temporary_name)
{
    enum { left_by_another, a_folder, a_link, locked };
    for (bool const is_new : {false, true}) {
        for (int row : {left_by_another, a_folder, a_link, locked}) {
            SCOPED_TRACE(std::to_string(row) + (is_new ? " new" : ""));
            scratch_folder const folder;
            std::string const file = folder.file("f"), name = folder.file(".f.zel-write");
            put(file, "[s]\nk=1\n");
            ino_t const before = facts_of(file).st_ino;
            if (is_new) {
                std::filesystem::remove(file);
            }
            int other = -1;
            if (row == a_folder) {
                std::filesystem::create_directory(name);
            } else if (row == a_link) {
                std::filesystem::create_symlink("elsewhere", name);
            } else {
                put(name, "left");
                ::chmod(name.c_str(), row == locked ? 0644 : 0600);
                other = row == locked ? ::open(name.c_str(), O_RDWR | O_CLOEXEC, 0) : -1;
                EXPECT_TRUE(other < 0 || __real_flock(other, LOCK_EX) == 0);
            }
            if (::geteuid() == 0) {
                ASSERT_EQ(::chown(folder.name().c_str(), 65534, 65534), 0);
                ASSERT_TRUE(is_new || ::chown(file.c_str(), 65534, 65534) == 0);
            }
            EXPECT_TRUE(holds_for_ordinary_user([&] { return write(file, "s", "k", "2"); }));
            EXPECT_EQ(get(file), "[s]\nk=2\n");
            EXPECT_TRUE(is_new || facts_of(file).st_ino != before); // not in its place
            // A new file's writer cannot tell what it cannot open from another one's at work.
            bool const stays
                = row == a_folder || row == locked || (row != a_link && is_new && ::geteuid() == 0);
            EXPECT_EQ(folder.entries(), stays ? 2 : 1);
            EXPECT_EQ(get(folder.file("elsewhere")), "<no file>");
            ::close(other);
        }
    }
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
    constexpr off_t first_byte = 0x7A65'6C00'0000'0000, content = first_byte + 2;
    // clang-format off
    struct { short kind; off_t start, length; bool lets_write, lets_write_in_place; } const rows[] = {
        {F_WRLCK, 0, 100, true, true}, // of the content by its program
        {F_RDLCK, 0, 0, false, false}, {F_WRLCK, 0, 0, false, false}, // of all there is
        {F_RDLCK, first_byte, 1, false, false}, // takes no right to write
        {F_WRLCK, first_byte, 1, false, false}, // a writer that was stopped
        {F_RDLCK, content, 1, true, false}, {F_WRLCK, content, 1, true, false},
    };
    // clang-format on
    faults::no_sleep = true;
    scratch_folder const folder;
    std::string const file = folder.file("f");
    for (auto const & row : rows) {
        for (bool const in_place : {false, true}) {
            SCOPED_TRACE(testing::Message() << row.start << " " << row.kind << in_place);
            std::filesystem::remove(folder.file("twin"));
            put(file, "[s]\nk=1\n");
            if (in_place) {
                std::filesystem::create_hard_link(file, folder.file("twin"));
            }
            int const other = ::open(file.c_str(), O_RDWR | O_CLOEXEC, 0);
            struct flock lock = {row.kind, SEEK_SET, row.start, row.length, 0};
            ASSERT_EQ(__real_fcntl(other, F_OFD_SETLK, &lock), 0);
            ASSERT_EQ(__real_flock(other, LOCK_EX), 0); // is never in the way
            EXPECT_EQ(read(file, "s", "k"), "1");
            bool const written = write(file, "s", "k", "2");
            EXPECT_EQ(written, in_place ? row.lets_write_in_place : row.lets_write);
            EXPECT_TRUE(written || last_error() == error_sharing_violation);
            ::close(other);
            EXPECT_TRUE(write(file, "s", "k", "3"));
        }
    }
    faults::no_sleep = false;
}

TEST(private_profile, writes_where_the_host_has_no_locks)
{
    scratch_folder const folder;
    put(folder.file("f"), "[s]\nk=0\n");
    faults::no_locks = true;
    for (char const * value : {"1", "2"}) { // by replacement, and in its place
        EXPECT_TRUE(write(folder.file("f"), "s", "k", value));
        EXPECT_EQ(read(folder.file("f"), "s", "k"), value);
        std::filesystem::create_hard_link(folder.file("f"), folder.file(value));
    }
    faults::no_locks = false;
    EXPECT_EQ(folder.entries(), 3);
}

TEST(private_profile, waits_for_a_lease_as_every_other_program)
{
    scratch_folder const folder(fast_place);
    std::string const file = folder.file("f");
    for (bool const reads : {true, false}) {
        put(file, "[s]\nk=1\n");
        child_process holder([&] {
            static int leased;
            leased = ::open(file.c_str(), O_RDWR, 0);
            // The host tells the holder that somebody else waits.
            ::signal(SIGIO, [](int) { ::_exit(::fcntl(leased, F_SETLEASE, F_UNLCK)); });
            return ::fcntl(leased, F_SETLEASE, F_WRLCK) != 0 || ::raise(SIGSTOP) != 0
                || ::sleep(30) == 0;
        });
        ASSERT_EQ(::waitpid(holder.id(), nullptr, WUNTRACED), holder.id());
        holder.send(SIGCONT);
        EXPECT_TRUE(reads ? read(file, "s", "k") == "1" : write(file, "s", "k", "2"));
        EXPECT_EQ(holder.result(), 0);
    }
}

TEST(private_profile, leaves_no_lock_to_a_child_that_is_forked_in_the_middle)
{
    scratch_folder const folder;
    std::string const file = folder.file("f");
    for (bool const in_place : {false, true}) {
        put(file, "[s]\nk=1\n");
        if (in_place) {
            std::filesystem::create_hard_link(file, folder.file("twin"));
        }
        int ends[2];
        ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        child_process writer([&] {
            faults::before_write = [&] {
                if (char byte; ::fork() == 0) {
                    ::close(ends[1]);
                    ::_exit(static_cast<int>(__real_read(ends[0], &byte, 1))); // with the test
                }
                ::raise(SIGKILL);
            };
            return write(file, "s", "k", "2");
        });
        EXPECT_EQ(writer.result(), -1);
        faults::no_sleep = true; // who has to wait has lost
        EXPECT_TRUE(write(file, "s", "k", "3"));
        faults::no_sleep = false;
        EXPECT_EQ(get(file), "[s]\nk=3\n");
        EXPECT_EQ(folder.entries(), in_place ? 2 : 1);
        ::close(ends[0]);
        ::close(ends[1]);
    }
}

TEST(private_profile, writes_of_many_entries_those_that_there_is_room_for)
{
    std::mt19937 random(5);
    for (int round = 0; round < 60; ++round) {
        scratch_folder const folder(fast_place);
        std::string const file = folder.file("f"), single = folder.file("single");
        for (auto const & each : {file, single}) {
            put(each, "[s]\nk1=\nk6=\n");
            if (round % 3 == 0) {
                std::filesystem::create_hard_link(each, each + " twin");
            }
        }
        faults::room = 100 + static_cast<off_t>(random() % 250);
        bool all = true;
        std::vector<std::string> texts;
        for (int i = 0; i < 12; ++i) {
            texts.push_back(std::string("k").append(std::to_string(i)));
            texts.push_back(std::string(random() % 4 == 0 ? random() % 300 : random() % 9, 'v'));
        }
        std::vector<private_profile_entry> entries;
        for (std::size_t i = 0; i < texts.size(); i += 2) {
            entries.push_back({i % 4 == 0 ? "s" : "t", texts[i], texts[i + 1]});
            all &= write(single, entries.back().section, texts[i], texts[i + 1]);
        }
        EXPECT_EQ(write_private_profile_entries(entries, file.c_str()), all);
        EXPECT_TRUE(all || last_error() == error_disk_full);
        faults::room = faults::no_limit;
        EXPECT_EQ(get(file), get(single));
    }
}

// Each call of the host's in turn fails, or is where the writer is killed: for a file that is
// replaced, a new one, and one that is overwritten.
TEST(private_profile, keeps_the_old_content_whichever_step_fails)
{
    std::string const long_text = std::string("[s]\na=").append(3000, 'a') + "\nz=1\n";
    // clang-format off
    struct { bool is_new, twin; char const * name; off_t part; bool killed; } const rows[] = {
        {true, false, "a", faults::no_limit, false},  {true, false, "a", 7, false},
        {false, false, "b", faults::no_limit, false}, {false, false, "b", 700, false},
        {false, true, "b", faults::no_limit, false},  {false, true, "b", 7, false},
        {false, true, "a", faults::no_limit, false},  {false, true, "a", 7, false},
        {true, false, "a", faults::no_limit, true},   {false, false, "b", faults::no_limit, true},
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(testing::Message()
                     << row.is_new << row.twin << row.name << row.part << row.killed);
        scratch_folder const folder(fast_place);
        std::string const file = folder.file("f"), before = row.is_new ? "<no file>" : long_text;
        auto const write_it = [&](int n) {
            faults::longest_write = row.part;
            faults::reason = row.killed ? faults::kills : n % 2 == 0 ? ENOSPC : EIO;
            faults::calls_left = n;
            bool const written = write(file, "s", row.name, "value");
            int const left = faults::calls_left.exchange(-1);
            faults::longest_write = faults::no_limit;
            faults::reason = EIO;
            return written ? (left >= 0 ? 2 : 1) : 0; // 2: no call was left to fail
        };
        for (int n = 0, outcome = 0; outcome != 2; ++n) {
            ASSERT_LT(n, 5000);
            std::filesystem::remove(folder.file("twin"));
            std::filesystem::remove(file);
            if (!row.is_new) {
                put(file, long_text);
            }
            if (row.twin) {
                std::filesystem::create_hard_link(file, folder.file("twin"));
            }
            outcome = row.killed ? in_child([&] { return write_it(n); }) : write_it(n);
            if (outcome > 0) {
                EXPECT_EQ(read(file, "s", row.name), "value");
            } else if (outcome == 0) {
                EXPECT_EQ(get(file), before) << n;
                EXPECT_NE(last_error(), 0U);
            } else { // killed
                EXPECT_TRUE(get(file) == before || read(file, "s", row.name) == "value") << n;
                EXPECT_TRUE(write(file, "s", row.name, "next")) << n;
            }
            EXPECT_EQ(folder.entries(), (outcome != 0 || !row.is_new) + row.twin) << n;
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
