// SPDX-License-Identifier: MIT
#pragma once

#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>

/// While it lives, numbers of the runtime have a decimal comma. The locale is made on the spot, as
/// few machines have one ready.
class decimal_comma {
public:
    static constexpr char name[] = "de_DE.UTF-8";

    decimal_comma()
    {
        if (::mkdtemp(folder_.data()) != nullptr) {
            // The name with a slash is a folder of its own, which needs no right to the system's.
            std::string const command = "localedef -i de_DE -f UTF-8 " + folder_ + "/" + name;
            EXPECT_EQ(std::system(command.c_str()), 0) << command;
        }
        ::setenv("LOCPATH", folder_.c_str(), 1);
        EXPECT_NE(std::setlocale(LC_ALL, name), nullptr);
        EXPECT_STREQ(std::localeconv()->decimal_point, ",");
    }
    decimal_comma(decimal_comma const &) = delete;
    decimal_comma & operator=(decimal_comma const &) = delete;
    ~decimal_comma()
    {
        std::setlocale(LC_ALL, "C");
        ::unsetenv("LOCPATH");
        std::filesystem::remove_all(folder_);
    }

private:
    std::string folder_ = testing::TempDir() + "zel_locale_XXXXXX";
};
