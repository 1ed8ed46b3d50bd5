// SPDX-License-Identifier: MIT
#include "zel/platform/profiles/private_profile.h"

#include "tests/support/processes.h"
#include "tests/support/property.h"
#include "tests/support/scratch_folder.h"
#include "tests/support/threads_at_once.h"
#include "zel/platform/last_error.h"
#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

extern "C" property private_profile_property;

// The host's calls of the functions under test come here first (linked with --wrap).
namespace faults {

constexpr off_t no_limit = 1LL << 40;
std::atomic<int> writes_left{-1}; // until one fails; negative for none
std::atomic<off_t> longest_write{no_limit};
std::atomic<off_t> room{no_limit}; // that a file may take
std::atomic<mode_t> made_with{0}; // the mode of the last file that was made
std::atomic<bool> no_locks{false};
std::atomic<bool> no_sleep{false}; // time passes at once
std::function<void()> before_place; // is taken; called once, as the next one
std::function<void()> before_write;

bool fails(bool wanted, int error)
{
    errno = wanted ? error : errno;
    return wanted;
}
bool none_left() { return fails(writes_left >= 0 && writes_left-- == 0, EIO); }
bool call(std::function<void()> & it)
{
    if (it) {
        std::exchange(it, nullptr)();
    }
    return false;
}

} // namespace faults

// clang-format off
#define WRAPPED(type, name, parameters, arguments, fault)                                          \
    type __real_##name parameters;                                                                 \
    type __wrap_##name parameters { return fault ? -1 : __real_##name arguments; }
extern "C" {
using namespace faults;
WRAPPED(int, openat, (int a, char const * b, int c, mode_t d), (a, b, c, (made_with = d)), false)
WRAPPED(int, fcntl, (int a, int b, void * c), (a, b, c), fails(no_locks, ENOLCK))
WRAPPED(int, flock, (int a, int b), (a, b), fails(no_locks, ENOLCK))
WRAPPED(int, ftruncate, (int a, off_t b), (a, b), none_left())
WRAPPED(int, fdatasync, (int a), (a), none_left())
WRAPPED(int, nanosleep, (timespec const * a, timespec * b), (a, b), fails(no_sleep, EINTR))
WRAPPED(int, renameat2, (int a, char const * b, int c, char const * d, unsigned int e), (a, b, c, d, e), call(before_place))
WRAPPED(ssize_t, pwrite, (int a, void const * b, size_t c, off_t d), (a, b, std::min(c, static_cast<size_t>(longest_write)), d),
        call(before_write) || fails(d + static_cast<off_t>(c) > room, ENOSPC) || none_left())
}
// clang-format on

namespace {

using namespace zel::platform;
namespace fs = std::filesystem;

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

/// A file of settings in a folder of its own.
class private_profile : public testing::Test {
protected:
    void link_twin() const { fs::create_hard_link(file, folder.file("twin")); }

    scratch_folder const folder{fast_place};
    std::string const file = folder.file("f");
};

TEST_F(private_profile, reads_lines_of_any_length)
{
    std::string const nul(1, '\0'), end(nul + "]=\n"); // of a text, whatever follows
    std::string const x(100'000, 'x'), blanks(70'000, ' '), name(40'000, 'K');
    // clang-format off
    struct { std::string text, section, name, value; } const rows[] = {
        {nul + "\n[s]" + nul + "\nk=v" + nul + "w", "s", "k", "v" + nul + "w"},
        {"[s]\n" + x + "=1\nk=" + blanks + "v", "s" + end, "k" + end, "v"},
        {"[" + blanks + "s]\n[" + x + "\nk=v", "s", "k", missing}, {"[s]\n" + name + " =v", "s", name, "v"},
    };
    // clang-format on
    for (auto const & row : rows) {
        put(file, row.text);
        EXPECT_EQ(read(file, row.section, row.name), row.value) << row.text.substr(0, 60);
        EXPECT_EQ(read(file, row.section, row.name, 2), row.value.substr(0, 1));
    }
    char buffer[] = "xyz"; // of no size at first
    EXPECT_EQ(get_private_profile_string("s", "none", "d", buffer, 0, file.c_str()), 0U);
    EXPECT_STREQ(buffer, "xyz");
    EXPECT_EQ(get_private_profile_string("s", "none", "d" + end, buffer, 3, file.c_str()), 1U);
}

TEST_F(private_profile, refuses_what_would_be_another_entry)
{
    std::string const end("\0]=\n", 4); // what is behind a NUL never matters
    // clang-format off
    struct { std::string section, name, value; } const rows[] = {
        {"a]", "k", "v"}, {"s", "a=b", "v"}, {"s", "k", "a\nb"},
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.section + "/" + row.name + "/" + row.value));
        EXPECT_FALSE(write(file, row.section, row.name, row.value));
        EXPECT_EQ(last_error(), error_invalid_parameter);
        EXPECT_EQ(folder.entries(), 0);
        private_profile_entry const both[] = {{row.section, row.name, row.value}, {"s", "k", "1"}};
        EXPECT_FALSE(write_private_profile_entries(both, file.c_str()));
        EXPECT_EQ(get(file), "[s]\nk=1\n"); // the sound one
        EXPECT_TRUE(write(file, "s" + end, "K" + end, "v" + end));
        EXPECT_TRUE(write_private_profile_struct("s", "b" + end, "A", 1, file.c_str()));
        EXPECT_EQ(get(file), "[s]\nk=v\nb=4141\n");
        for (char const * name : {"b", "none"}) { // no block at all removes
            EXPECT_TRUE(write_private_profile_struct("s", name, nullptr, 1, file.c_str()));
            EXPECT_EQ(get(file), "[s]\nk=v\n");
        }
        fs::remove(file);
    }
}

TEST(profile_grammar, is_that_of_a_plain_reader_and_writer)
{
    expect_for_any(private_profile_property, 5000, [](auto & random) {
        std::string input(1, static_cast<char>(random()));
        for (auto const & names : {std::array{"a", "A", "b ", "c]", "x", "\td", "", "\xC4"},
                                   std::array{"x", "X", " y", "z\v", "[x", ";", "", "\xE4"}}) {
            input += names[random() % names.size()] + std::string("\xFF");
        }
        input += any_words(random, 2, {"1", "'", "\"", " 3 ", "\t", "00", "01FF00", "\n", "\r"})
            + "\xFF" + any_words(random, 1, {"\xEF\xBB\xBF", "\xEF\xBB"});
        for (auto lines = random() % 10; lines > 0; --lines) {
            input += any_words(random, 1,
                               {"[a]",        "\v[ B ]",     "[c",      "[[a",     "[a]b]",
                                "x=1",        " Y =\t'2\" ", ";c",      ";x=1",    "noise",
                                "=\"3\"",     "x[a]",        "x=01 01", "X='0101", "z\v=1",
                                "y= 01FF00 ", "X = '00'",    "X=000",   "[]",      "['b'] x=1",
                                "[\xE4]",     "\xC4=1"})
                + std::string(any_words(random, 1, {"", "", "\r"})) + "\n";
        }
        return input + any_words(random, 1, {"z=4", "[b]", "x=", "\r", " "});
    });
}

TEST_F(private_profile, gives_blocks_of_the_right_size_only)
{
    put(file, "[s]\nk=\"01ff00\"\nother=0102\n");
    std::uint32_t size = 99;
    EXPECT_FALSE(get_private_profile_struct_size("s", "other", size, file.c_str()));
    EXPECT_EQ(size, 0U);
    EXPECT_TRUE(get_private_profile_struct_size("s", "k", size, file.c_str()));
    EXPECT_EQ(size, 2U);
    for (std::uint32_t const wanted : {0U, 1U, 2U, 3U, 0xFFFFFFFFU}) {
        std::string bytes(4, 'x');
        EXPECT_FALSE(get_private_profile_struct("s", "other", bytes.data(), wanted, file.c_str()));
        EXPECT_EQ(last_error(), error_invalid_parameter);
        EXPECT_EQ(get_private_profile_struct("s", "k", bytes.data(), wanted, file.c_str()),
                  wanted == 2);
        EXPECT_TRUE(wanted == 2 || last_error() == error_bad_length);
        EXPECT_EQ(bytes, wanted == 2 ? "\1\xFFxx" : "xxxx");
    }
}

TEST_F(private_profile, takes_what_is_no_file_of_settings_for_missing)
{
    fs::create_directory(folder.file("folder"));
    ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0666), 0);
    put(folder.file("huge"), "[s]\nk=v\n");
    fs::resize_file(folder.file("huge"), (1LL << 30) + 1);
    fs::create_symlink("circle", folder.file("circle"));
    for (std::string const name : {"folder", "pipe", "huge", "circle", "none/f", "huge/f"}) {
        EXPECT_EQ(read(folder.file(name), "s", "k"), missing) << name;
        EXPECT_NE(last_error(), 0U);
        EXPECT_FALSE(write(folder.file(name), "s", "k", "v")) << name;
    }
    EXPECT_FALSE(write("", "s", "k", "v") || write("/dev/zero", "s", "k", "v"));
    EXPECT_EQ(folder.entries(), 4);
    put(file, "[s]\nk=v\n");
    ::chmod(file.c_str(), 0444);
    EXPECT_FALSE(write(file, "s", "k", "w")); // read-only, for everyone
    ::chmod(folder.name().c_str(), 0777);
    ::chmod(file.c_str(), 0);
    EXPECT_TRUE(holds_for_ordinary_user([&] { return read(file, "s", "k") == missing; }));
}

struct stat facts_of(std::string const & file)
{
    struct stat facts = {};
    ::stat(file.c_str(), &facts);
    return facts;
}

/// What a file keeps when it is replaced: its mode, its owner and its attributes.
std::string kept_facts_of(std::string const & file)
{
    struct stat const facts = facts_of(file);
    std::string result
        = testing::PrintToString(std::tuple(facts.st_mode, facts.st_uid, facts.st_gid));
    for (char const * name : {"system.posix_acl_access", "user.origin"}) {
        char value[200];
        ssize_t const size = ::getxattr(file.c_str(), name, value, sizeof value);
        result.append(value, static_cast<std::size_t>(std::max<ssize_t>(size, 0))) += ';';
    }
    return result;
}

/// An access list that lets user 65534 do anything.
std::string access_list()
{
    std::uint16_t const entries[]
        = {2, 0,      1,      6,  0xFFFF, 0xFFFF, 2,      7,  65534, 0,      4,
           4, 0xFFFF, 0xFFFF, 16, 7,      0xFFFF, 0xFFFF, 32, 4,     0xFFFF, 0xFFFF};
    return std::string(reinterpret_cast<char const *>(entries), sizeof entries);
}

TEST(private_profile_on_disk, replaces_a_file_and_keeps_what_belongs_to_it)
{
    scratch_folder const folder;
    // clang-format off
    struct { std::string file, on; char const * attribute; std::string value; } const rows[] = {
        {folder.file("plain"), folder.name(), "user.other", "of the folder"},
        {folder.file("listed"), folder.file("listed"), "system.posix_acl_access", access_list()},
        {folder.file("marked"), folder.file("marked"), "user.origin", "somewhere"},
        {folder.file("in a folder with a list"), folder.name(), "system.posix_acl_default", access_list()},
    };
    // clang-format on
    for (auto const & [file, on, attribute, text] : rows) {
        SCOPED_TRACE(file);
        put(file, "[s]\nk=1\n");
        ASSERT_TRUE(::geteuid() != 0 || ::chown(file.c_str(), 65534, 65534) == 0);
        ::chmod(file.c_str(), 06640);
        EXPECT_EQ(::setxattr(on.c_str(), attribute, text.data(), text.size(), 0), 0);
        std::string const before = kept_facts_of(file);
        for (char const * value : {"2", "3"}) { // and is not changed in its place from then on
            ino_t const old = facts_of(file).st_ino;
            EXPECT_TRUE(write(file, "s", "k", value));
            EXPECT_EQ(faults::made_with, 0600U); // or others could open it before it holds secrets
            ino_t const made = facts_of(file).st_ino;
            EXPECT_NE(old, made);
            EXPECT_EQ(kept_facts_of(file), before);
            EXPECT_TRUE(write(file, "s", "k", value)); // as it is already
            EXPECT_EQ(facts_of(file).st_ino, made);
        }
    }
}

TEST_F(private_profile, follows_links_as_the_host_does)
{
    put(file, "[s]\nk=1\n");
    fs::create_directory(folder.file("sub"));
    fs::create_symlink("../f", folder.file("sub/link"));
    EXPECT_TRUE(write(folder.file("sub/link"), "s", "k", "2"));
    EXPECT_EQ(get(file), "[s]\nk=2\n");
    EXPECT_TRUE(fs::is_symlink(folder.file("sub/link")));
    link_twin(); // a second name of the same file sees the change too
    for (char const * value : {"longer than before", "x", ""}) {
        EXPECT_TRUE(write(file, "s", "k", value));
        EXPECT_EQ(get(folder.file("twin")), std::string("[s]\nk=") + value + "\n");
    }

    // A link that leads nowhere yet leads to a new file afterwards, also when it comes at the last
    // moment; and to none when that could not be written.
    fs::create_symlink("new", folder.file("ahead"));
    faults::room = 0;
    EXPECT_FALSE(write(folder.file("ahead"), "s", "k", "1"));
    faults::room = faults::no_limit;
    EXPECT_EQ(get(folder.file("new")), "<no file>");
    faults::before_place = [&] { fs::create_symlink("late target", folder.file("late")); };
    for (auto const & [link, target] : {std::pair{"late", "late target"}, {"ahead", "new"}}) {
        EXPECT_TRUE(write(folder.file(link), "s", "k", "1"));
        EXPECT_EQ(get(folder.file(target)), "[s]\nk=1\n");
        EXPECT_EQ(facts_of(folder.file(target)).st_mode & 0600, 0600U);
    }

    if (get("/proc/sys/fs/protected_symlinks").starts_with('1') && ::geteuid() == 0) {
        ::chmod(folder.name().c_str(), 01777);
        EXPECT_TRUE(holds_for_ordinary_user([&] {
            return ::symlink("f", folder.file("planted").c_str()) == 0
                && ::symlink("none", folder.file("dangling").c_str()) == 0;
        }));
        EXPECT_FALSE(write(folder.file("planted"), "s", "k", "planted"));
        EXPECT_FALSE(write(folder.file("dangling"), "s", "k", "planted"));
        EXPECT_EQ(get(file) + get(folder.file("none")), "[s]\nk=\n<no file>");
    }
}

// Under the name of the temporary file is something that a killed writer of another user left, or
// that has nothing to do with it.
TEST(private_profile_names, writes_whatever_has_the_temporary_name)
{
    enum { left_by_another, a_folder, a_link, locked };
    for (int i = 0; i < 8; ++i) {
        bool const is_new = i >= 4;
        int const row = i % 4;
        SCOPED_TRACE(i);
        scratch_folder const folder;
        std::string const file = folder.file("f"), name = folder.file(".f.zel-write");
        if (!is_new) {
            put(file, "[s]\nk=1\n");
        }
        ino_t const before = facts_of(file).st_ino;
        int other = -1;
        if (row == a_folder) {
            fs::create_directory(name);
        } else if (row == a_link) {
            fs::create_symlink("elsewhere", name);
        } else {
            put(name, "left");
            ::chmod(name.c_str(), row == locked ? 0644 : 0600);
            other = row == locked ? ::open(name.c_str(), O_RDWR | O_CLOEXEC) : -1;
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

TEST_F(private_profile, writes_into_the_file_where_the_folder_admits_no_other)
{
    put(file, "[s]\nk=1\n");
    ::chmod(file.c_str(), 0666);
    ::chmod(folder.name().c_str(), 0555);
    EXPECT_TRUE(holds_for_ordinary_user([&] {
        return write(file, "s", "k", "longer") && !write(folder.file("new"), "s", "k", "1")
            && last_error() == error_access_denied;
    }));
    EXPECT_EQ(get(file), "[s]\nk=longer\n");
    EXPECT_EQ(folder.entries(), 1);
    ::chmod(folder.name().c_str(), 0755);
}

TEST_F(private_profile, waits_for_no_lock_of_another_program_for_ever)
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
    for (bool const in_place : {false, true}) {
        put(file, "[s]\nk=3\n");
        if (in_place) {
            link_twin();
        }
        for (auto const & row : rows) {
            SCOPED_TRACE(testing::Message() << row.start << " " << row.kind << in_place);
            int const other = ::open(file.c_str(), O_RDWR | O_CLOEXEC);
            struct flock lock = {row.kind, SEEK_SET, row.start, row.length, 0};
            ASSERT_EQ(__real_fcntl(other, F_OFD_SETLK, &lock), 0);
            ASSERT_EQ(__real_flock(other, LOCK_EX), 0); // is never in the way
            EXPECT_EQ(read(file, "s", "k"), "3");
            bool const written = write(file, "s", "k", "2");
            EXPECT_EQ(written, in_place ? row.lets_write_in_place : row.lets_write);
            EXPECT_TRUE(written || last_error() == error_sharing_violation);
            ::close(other);
            EXPECT_TRUE(write(file, "s", "k", "3"));
        }
    }
    faults::no_sleep = false;
}

TEST_F(private_profile, writes_where_the_host_has_no_locks)
{
    put(file, "[s]\nk=0\n");
    faults::no_locks = true;
    for (char const * value : {"1", "2"}) { // by replacement, and in its place
        EXPECT_TRUE(write(file, "s", "k", value));
        EXPECT_EQ(read(file, "s", "k"), value);
        fs::create_hard_link(file, folder.file(value));
    }
    faults::no_locks = false;
    EXPECT_EQ(folder.entries(), 3);
}

TEST_F(private_profile, waits_for_a_lease_as_every_other_program)
{
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

TEST_F(private_profile, leaves_no_lock_to_a_child_that_is_forked_in_the_middle)
{
    for (bool const in_place : {false, true}) {
        put(file, "[s]\nk=1\n");
        if (in_place) {
            link_twin();
        }
        int ends[2];
        ASSERT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        child_process writer([&] {
            faults::before_write = [&] {
                if (char byte; ::fork() == 0) {
                    ::close(ends[1]);
                    ::_exit(static_cast<int>(::read(ends[0], &byte, 1))); // with the test
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

TEST(private_profile_batches, write_of_many_entries_those_that_there_is_room_for)
{
    std::mt19937 random(5);
    for (int round = 0; round < 60; ++round) {
        scratch_folder const folder(fast_place);
        std::string const file = folder.file("f"), single = folder.file("single");
        for (auto const & each : {file, single}) {
            put(each, "[s]\nka=\nkg=\n");
            if (round % 3 == 0) {
                fs::create_hard_link(each, each + " twin");
            }
        }
        faults::room = 100 + static_cast<off_t>(random() % 250);
        bool all = true;
        std::array<std::string, 12> values;
        std::vector<private_profile_entry> entries;
        for (std::size_t i = 0; i < values.size(); ++i) {
            values[i].assign(random() % 4 == 0 ? random() % 300 : random() % 9, 'v');
            std::string_view const name
                = std::string_view("kakbkckdkekfkgkhkikjkkkl").substr(2 * i, 2);
            entries.push_back({i % 2 == 0 ? "s" : "t", name, values[i]});
            all &= write(single, entries.back().section, name, values[i]);
        }
        EXPECT_EQ(write_private_profile_entries(entries, file.c_str()), all);
        EXPECT_TRUE(all || last_error() == error_disk_full);
        faults::room = faults::no_limit;
        EXPECT_EQ(get(file), get(single));
    }
}

TEST_F(private_profile, gives_a_file_that_it_could_not_overwrite_its_old_bytes_back)
{
    std::string const old = std::string("[s]\na=").append(3000, 'a') + "\nz=1\n";
    put(file, old);
    link_twin();
    faults::longest_write = 7;
    for (char const * const name : {"b", "a"}) { // a longer text, and a shorter one
        put(file, old);
        for (int n = 0, written = 0; written == 0; ++n) { // one write after the other fails
            EXPECT_EQ(get(file), old) << n;
            faults::writes_left = n;
            written = write(file, "s", name, "value");
        }
        EXPECT_EQ(read(file, "s", name), "value");
    }
    faults::longest_write = faults::no_limit;
    faults::writes_left = -1;
}

TEST_F(private_profile, loses_no_entry_of_any_writer)
{
    constexpr int processes = 4, threads = 4, keys = 250;
    auto const section = [](int key) { return key % 2 == 0 ? "even" : "odd"; };
    std::vector<child_process> children;
    for (int process = 0; process < processes; ++process) {
        children.emplace_back([&, process] {
            std::atomic<int> lost = 0;
            run_at_once(threads, [&](int thread) {
                for (int key = 0; key < keys; ++key) {
                    auto const name = std::to_string((process * threads + thread) * keys + key);
                    lost += !write(file, section(key), name, "v");
                }
            });
            return lost == 0;
        });
    }
    for (auto & child : children) {
        EXPECT_EQ(child.result(), 0);
    }
    for (int key = 0; key < processes * threads * keys; ++key) {
        ASSERT_EQ(read(file, section(key), std::to_string(key)), "v") << key;
    }
    EXPECT_EQ(folder.entries(), 1);
}

TEST_F(private_profile, shows_readers_whole_states_only)
{
    auto const value = [](int n) {
        return std::string(500 + static_cast<std::size_t>(n) % 7 * 300, static_cast<char>('a' + n));
    };
    for (bool const overwritten : {false, true}) {
        put(file, std::string("[s]\nf=").append(32'252, 'f') + "\nk=" + value(0) + "\nz=end\n");
        ASSERT_EQ(get(file).size(), 32'768U); // whole blocks, so that an end shows only behind them
        if (overwritten) {
            link_twin();
        }
        std::atomic<bool> over = false;
        std::thread writer([&] {
            for (int n = 1; n <= 5000; ++n) {
                EXPECT_TRUE(write(file, "s", "k", value(n % 26)));
            }
            over = true;
        });
        int torn = 0;
        do {
            std::string const seen = read(file, "s", "k");
            torn += seen != value(seen.front() - 'a') || read(file, "s", "z") != "end";
        } while (!over);
        writer.join();
        EXPECT_EQ(torn, 0);
    }
}

} // namespace
