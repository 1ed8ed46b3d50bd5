// SPDX-License-Identifier: MIT
// Loggers before main, after it, in a module that comes and goes, and in a forked child.
#include "zel/log/logger.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

class keeper : public zel::logger {
public:
    std::string text;
    int at_end = -1; // where to write it when the logger goes

    keeper() { write(info, "early %d", 1); }
    ~keeper() override
    {
        if (at_end >= 0) {
            write(info, "late");
            static_cast<void>(!::write(at_end, text.c_str(), text.length()));
        }
    }

protected:
    void output_buffer(log_type, zel::string const & line, zel::string const &) override
    {
        text += line + ";";
    }
} static_logger;

// What comes through the pipe until all writers have closed it.
std::string read_all(int descriptor)
{
    std::string text;
    char block[256];
    for (::ssize_t count = 0; (count = ::read(descriptor, block, sizeof block)) > 0;) {
        text.append(block, static_cast<std::size_t>(count));
    }
    ::close(descriptor);
    return text;
}

TEST(logger_lifetime, writes_in_static_constructors_a_forked_child_and_static_destructors)
{
    EXPECT_EQ(static_logger.text, "early 1;");
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::pid_t const child = ::fork();
    if (child == 0) {
        static_logger.at_end = ends[1];
        static_logger.write_grouped(zel::logger::info, "g", "%d", 1);
        static_logger.write(zel::logger::info, "child %u", static_logger.get_info_counter());
        std::exit(0); // destroys it
    }
    ::close(ends[1]);
    EXPECT_EQ(read_all(ends[0]), "early 1;child 2;late;");
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(static_logger.get_info_counter(), 1U);
}

TEST(logger_lifetime, writes_while_its_module_is_unloaded)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ASSERT_EQ(::setenv("ZEL_TEST_PIPE", std::to_string(ends[1]).c_str(), 1), 0);
    for (int i = 0; i < 2; ++i) {
        void * const module = ::dlopen(ZEL_TEST_MODULE, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(module, nullptr) << ::dlerror();
        EXPECT_EQ(::dlclose(module), 0);
    }
    ::close(ends[1]);
    std::string const once = "loaded;unloaded after 1 of a group that is suppressed;";
    EXPECT_EQ(read_all(ends[0]), once + once);
}

} // namespace
