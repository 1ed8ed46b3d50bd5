// SPDX-License-Identifier: MIT
#pragma once

#include "zel/files/native_path.h"
#include "zel/files/path.h"

#include "tests/scratch_folder.h"
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>

/// A test's own folder, whose entries the standard library sees by one name and zel by another.
class scratch : public scratch_folder {
public:
    explicit scratch(char const * place = "")
        : scratch_folder(place)
    {
        std::filesystem::permissions(name(), std::filesystem::perms(0755));
    }

    std::filesystem::path host(std::string const & entry) const { return file(entry); }
    zel::path path(std::string const & entry) const { return zel::from_native(file(entry)); }

    void write(std::string const & entry, std::string const & content) const
    {
        std::filesystem::create_directories(host(entry).parent_path());
        put(file(entry), content);
    }
    std::string read(std::string const & entry) const { return get(file(entry)); }
    bool exists(std::string const & entry) const
    {
        return std::filesystem::exists(std::filesystem::symlink_status(host(entry)));
    }
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
