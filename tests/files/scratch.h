// SPDX-License-Identifier: MIT
#pragma once

#include "zel/files/native_path.h"
#include "zel/files/path.h"

#include "tests/support/processes.h"
#include "tests/support/raised.h"
#include "tests/support/scratch_folder.h"
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
