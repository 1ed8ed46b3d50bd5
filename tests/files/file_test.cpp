// SPDX-License-Identifier: MIT
#include "zel/files/file.h"

#include "scratch.h"
#include <atomic>
#include <csignal>
#include <thread>

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>

namespace {

using zel::file;

TEST(file, opens_in_every_mode)
{
    struct {
        file::mode mode;
        bool creates;
        char const * after; // of "old" once "NE" was written
        std::uint32_t read; // bytes of "old" that can be read first
    } const rows[] = {
        {file::mode_read, false, "old", 3},       {file::mode_write, true, "NE", 0},
        {file::mode_append, true, "oldNE", 0},    {file::mode_read_update, false, "NEd", 3},
        {file::mode_write_update, true, "NE", 0}, {file::mode_append_update, true, "oldNE", 3},
    };
    for (auto const & row : rows) {
        for (file::kind const kind : {file::kind_text, file::kind_binary}) {
            SCOPED_TRACE(row.mode);
            scratch const area;
            area.write("f", "old");
            file(area.path("f"), row.mode, kind).write_string("NE");
            EXPECT_EQ(area.read("f"), row.after);
            area.write("f", "old");
            char block[10];
            EXPECT_EQ(file(area.path("f"), row.mode, kind).read(block, 10), row.read);
            EXPECT_EQ(type_raised([&] { file(area.path("new"), row.mode, kind); }),
                      row.creates ? 0U : std::uint32_t{file::exception::cannot_open});
            EXPECT_EQ(area.exists("new"), row.creates);
        }
    }
}

TEST(file, keeps_every_byte)
{
    scratch const area;
    std::string all;
    for (int i = 0; i < 1000; ++i) {
        all += static_cast<char>(i);
    }
    file out(area.path("f"), file::mode_write, file::kind_text);
    EXPECT_EQ(out.write(all.data(), 1000), 1000U);
    EXPECT_EQ(out.write_string(zel::string("a\0b\r\n", 5)), 5U);
    EXPECT_EQ(out.write_string("c\0d"), 1U);
    EXPECT_EQ(out.write_string(""), 0U);
    EXPECT_EQ(out.write_string(static_cast<char const *>(nullptr)), 0U);
    EXPECT_EQ(out.write_char('\xE4'), 228U);
    out.close();
    all += std::string("a\0b\r\nc\xE4", 7);
    EXPECT_EQ(area.read("f"), all);

    file in(area.path("f"), file::mode_read, file::kind_text);
    std::string back(2000, '\0');
    EXPECT_FALSE(in.eof());
    EXPECT_EQ(in.read(back.data(), 1007), 1007U);
    EXPECT_FALSE(in.eof()) << "the end isn't met yet";
    EXPECT_EQ(in.read(back.data() + 1007, 100), 0U);
    EXPECT_TRUE(in.eof());
    EXPECT_EQ(back.substr(0, 1007), all);
    EXPECT_EQ(in.write_char('x'), 0xFFFFFFFFU) << "not open for writing";
}

TEST(file, reports_failure_without_a_stream)
{
    scratch const area;
    file none;
    char block[4];
    EXPECT_TRUE(none.get_path().empty());
    auto const expect_nothing = [&] {
        EXPECT_TRUE(none.eof());
        EXPECT_EQ(none.read(block, 4) + none.write("a", 1) + none.write_string("b")
                      + none.write_string(zel::string("c")),
                  0U);
        EXPECT_EQ(none.write_char('x'), 0xFFFFFFFFU);
        EXPECT_EQ(type_raised([&] { none.close(); }), file::exception::cannot_close);
    };
    expect_nothing();
    none.open(area.path("f"), file::mode_write, file::kind_binary);
    none.write_string("first");
    none.open(area.path("g"), file::mode_write, file::kind_binary); // closes and keeps f
    EXPECT_EQ(area.read("f"), "first");
    none.close();
    expect_nothing();

    for (char const * bad : {"missing/x", "folder"}) {
        std::filesystem::create_directories(area.host("folder"));
        try {
            none.open(area.path(bad), file::mode_read, file::kind_binary);
            ADD_FAILURE();
        } catch (file::exception & failure) {
            EXPECT_EQ(failure.get_message(),
                      zel::string("Zel IO Exception: Cannot open file ") + area.path(bad).c_str());
        }
        EXPECT_EQ(none.get_path(), area.path(bad));
        expect_nothing();
    }
}

TEST(file, goes_beyond_four_gibibytes)
{
    scratch const area;
    area.write("large", "");
    std::filesystem::resize_file(area.host("large"), 0x100000000);
    file(area.path("large"), file::mode_append, file::kind_binary).write_string("tail");
    EXPECT_EQ(std::filesystem::file_size(area.host("large")), 0x100000004U);
}

TEST(file, keeps_the_lock_of_its_stream)
{
    struct with_number : file {
        using file::file;
        int number() const { return ::fileno(stream); }
    };
    scratch const area;
    std::string const all = [] {
        std::string text;
        for (int i = 100'000; i < 150'000; ++i) {
            text += std::to_string(i) + '\n';
        }
        return text;
    }();
    std::atomic<bool> done = false;
    std::thread stranger([&] {
        while (!done) {
            std::fflush(nullptr);
        }
    });
    for (int round = 0; round < 10; ++round) {
        with_number out(area.path("f"), file::mode_write, file::kind_binary);
        for (std::size_t at = 0; at < all.size(); at += 7) {
            out.write(all.data() + at, 7);
        }
        struct ::stat facts;
        EXPECT_EQ(::fstat(out.number(), &facts), 0) << "a derived class's own calls";
        out.close();
        EXPECT_TRUE(area.read("f") == all) << round;
    }
    done = true;
    stranger.join();
}

// A pipe that is too small for what is written, and signals all the time.
TEST(file, goes_on_after_a_signal)
{
    scratch const area;
    ASSERT_EQ(::mkfifo(area.host("pipe").c_str(), 0600), 0);
    struct sigaction action = {};
    struct sigaction before;
    action.sa_handler = [](int) {}; // without SA_RESTART
    ::sigaction(SIGUSR1, &action, &before);
    constexpr std::uint32_t size = 300'000;
    std::string sent(size, '\0');
    for (std::uint32_t i = 0; i < size; ++i) {
        sent[i] = static_cast<char>(i * 7 >> 3);
    }
    std::string received(size, '\0');
    std::uint32_t count = 0;
    std::atomic<bool> written = false;
    std::atomic<bool> read = false;
    std::thread writer([&] {
        file out(area.path("pipe"), file::mode_write, file::kind_binary);
        for (std::uint32_t i = 0; i < size; i += 1000) {
            EXPECT_EQ(out.write(sent.data() + i, 1000), 1000U);
        }
        EXPECT_EQ(type_raised([&] { out.close(); }), 0U);
        written = true;
    });
    std::thread reader([&] {
        file in(area.path("pipe"), file::mode_read, file::kind_binary);
        while (std::uint32_t const more
               = in.read(received.data() + count, std::min(777U, size - count))) {
            count += more;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        read = true;
    });
    while (!written || !read) {
        if (!written) {
            ::pthread_kill(writer.native_handle(), SIGUSR1);
        }
        if (!read) {
            ::pthread_kill(reader.native_handle(), SIGUSR1);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    writer.join();
    reader.join();
    ::sigaction(SIGUSR1, &before, nullptr);
    EXPECT_EQ(count, size);
    EXPECT_EQ(received, sent);
}

} // namespace
