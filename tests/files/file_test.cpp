// SPDX-License-Identifier: MIT
#include "zel/files/file.h"

#include "scratch.h"
#include "tests/support/sanitizers.h"
#include <atomic>
#include <thread>

namespace {

using zel::file;

TEST(file, opens_in_every_mode)
{
    // clang-format off
    struct { file::mode mode; bool creates; char const * after_writing_NE; std::uint32_t can_be_read; } const rows[] = {
        {file::mode_read, false, "old", 3}, {file::mode_write, true, "NE", 0}, {file::mode_append, true, "oldNE", 0},
        {file::mode_read_update, false, "NEd", 3}, {file::mode_write_update, true, "NE", 0}, {file::mode_append_update, true, "oldNE", 3},
    };
    // clang-format on
    for (auto const & row : rows) {
        SCOPED_TRACE(row.mode);
        scratch const area;
        area.write("f", "old");
        file(area.path("f"), row.mode, file::kind_text).write_string("NE");
        EXPECT_EQ(area.read("f"), row.after_writing_NE);
        area.write("f", "old");
        char block[10];
        EXPECT_EQ(file(area.path("f"), row.mode, file::kind_binary).read(block, 10),
                  row.can_be_read);
        EXPECT_EQ(type_raised([&] { file(area.path("new"), row.mode, file::kind_binary); }),
                  row.creates ? 0U : std::uint32_t{file::exception::cannot_open});
        EXPECT_EQ(area.exists("new"), row.creates);
    }
}

TEST(file, keeps_every_byte)
{
    scratch const area;
    std::string const all("\x80\0\r\n\x1A\xFF", 6);
    file out(area.path("f"), file::mode_write, file::kind_text);
    EXPECT_EQ(out.write(all.data(), 6), 6U);
    EXPECT_EQ(out.write_string(zel::string("a\0b", 3)) + out.write_string("c\0d"), 3U + 1);
    EXPECT_EQ(out.write_string("") + out.write_string(static_cast<char const *>(nullptr)), 0U);
    EXPECT_EQ(out.write_char('\xE4'), 228U);
    out.close();
    std::string const written = all + std::string("a\0bc\xE4", 5);
    EXPECT_EQ(area.read("f"), written);

    file in(area.path("f"), file::mode_read, file::kind_text);
    std::string back(20, '\0');
    EXPECT_EQ(in.read(back.data(), 11), 11U);
    EXPECT_FALSE(in.eof()) << "the end isn't met yet";
    EXPECT_EQ(in.read(back.data() + 11, 9), 0U);
    EXPECT_TRUE(in.eof() && back.starts_with(written));
    EXPECT_EQ(in.write_char('x'), 0xFFFFFFFFU) << "not open for writing";

    area.write("large", "");
    std::filesystem::resize_file(area.host("large"), 0x100000000);
    file(area.path("large"), file::mode_append, file::kind_binary).write_string("tail");
    EXPECT_EQ(std::filesystem::file_size(area.host("large")), 0x100000004U);
}

TEST(file, reports_failure_without_a_stream)
{
    scratch const area;
    file none;
    char block[4];
    EXPECT_TRUE(none.get_path().empty());
    std::filesystem::create_directory(area.host("folder"));
    none.open(area.path("f"), file::mode_write, file::kind_binary);
    none.write_string("first");
    none.open(area.path("folder/g"), file::mode_write, file::kind_binary); // closes and keeps f
    EXPECT_EQ(area.read("f"), "first");
    none.close();
    for (char const * bad : {"missing/x", "folder"}) {
        EXPECT_EQ(message_raised<file::exception>(
                      [&] { none.open(area.path(bad), file::mode_read, file::kind_binary); }),
                  std::string("Zel IO Exception: Cannot open file ") + area.path(bad).c_str());
        EXPECT_EQ(none.get_path(), area.path(bad));
        EXPECT_TRUE(none.eof());
        EXPECT_EQ(none.read(block, 4) + none.write("a", 1) + none.write_string("b")
                      + none.write_string(zel::string("c")),
                  0U);
        EXPECT_EQ(none.write_char('x'), 0xFFFFFFFFU);
        EXPECT_EQ(type_raised([&] { none.close(); }), file::exception::cannot_close);
    }
    struct for_its_class : file {
        using file::file;
        using file::stream;
    } full(zel::path("C:\\dev\\full"), file::mode_write, file::kind_binary);
    EXPECT_EQ(full.write("ab", 2), 2U) << "they wait in the buffer";
    EXPECT_TRUE(::fileno(full.stream) > 2 && std::ftell(full.stream) == 2);
    EXPECT_EQ(type_raised([&] { full.close(); }), file::exception::cannot_close);
}

TEST(file, keeps_the_lock_of_its_stream)
{
    if (under_thread_sanitizer) {
        GTEST_SKIP() << "it does not see the C library's locks, by which the stranger gets to know "
                        "the descriptor";
    }
    scratch const area;
    std::string all;
    for (int i = 0; i < 50'000; ++i) {
        all.append(std::to_string(100'000 + i)) += '\n';
    }
    std::atomic<bool> done = false;
    std::thread stranger([&] {
        while (!done) {
            std::fflush(nullptr);
        }
    });
    for (int round = 0; round < 10; ++round) {
        file out(area.path("f"), file::mode_write, file::kind_binary);
        for (std::size_t at = 0; at < all.size(); at += 7) {
            out.write(all.data() + at, 7);
        }
        out.close();
        EXPECT_TRUE(area.read("f") == all) << round;
    }
    done = true;
    stranger.join();
}

} // namespace
