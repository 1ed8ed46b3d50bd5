// SPDX-License-Identifier: MIT
#pragma once

#include "zel/files/native_path.h"
#include "zel/files/path.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <string>

#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

/// A folder of the host that lives as long as the test. What the library does there is checked with
/// the standard library.
class scratch {
public:
    scratch()
    {
        std::string name = std::filesystem::temp_directory_path() / "zel-test-XXXXXX";
        root_ = ::mkdtemp(name.data());
        std::filesystem::permissions(root_, std::filesystem::perms(0755));
    }
    ~scratch()
    {
        std::error_code ignored;
        std::filesystem::remove_all(root_, ignored);
    }

    std::filesystem::path host(std::string const & name) const { return root_ / name; }
    zel::path path(std::string const & name) const { return zel::from_native(host(name).string()); }

    void write(std::string const & name, std::string const & content) const
    {
        std::filesystem::create_directories(host(name).parent_path());
        std::ofstream(host(name), std::ios::binary) << content;
    }
    std::string read(std::string const & name) const
    {
        std::ifstream in(host(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    bool exists(std::string const & name) const
    {
        return std::filesystem::exists(std::filesystem::symlink_status(host(name)));
    }

private:
    std::filesystem::path root_;
};

/// Runs `body` in a child process and tells what it returned; 255 when it was killed.
inline int in_child(std::function<int()> const & body)
{
    ::pid_t const child = ::fork();
    if (child == 0) {
        ::_exit(body());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

/// The same as an ordinary user, whom rights stop.
inline int as_ordinary_user(std::function<int()> const & body)
{
    return in_child([&] {
        if (::geteuid() == 0
            && (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0)) {
            return 254;
        }
        return body();
    });
}
