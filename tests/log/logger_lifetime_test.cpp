// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

TEST(logger_lifetime, writes_while_its_module_is_loaded_and_unloaded_also_by_the_end_of_a_child)
{
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ASSERT_EQ(::setenv("ZEL_TEST_PIPE", std::to_string(ends[1]).c_str(), 1), 0);
    void * const module = ::dlopen(ZEL_TEST_MODULE, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << ::dlerror();
    ::pid_t const child = ::fork();
    if (child == 0) {
        std::exit(0); // which runs the static destructors
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(::dlclose(module), 0);
    ::close(ends[1]);
    char text[256] = {};
    EXPECT_GT(::read(ends[0], text, sizeof text - 1), 0);
    EXPECT_STREQ(text, "come;gone after 2;gone after 2;");
    ::close(ends[0]);
}

} // namespace
