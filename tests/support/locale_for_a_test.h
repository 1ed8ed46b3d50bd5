// SPDX-License-Identifier: MIT
#pragma once

#include <clocale>

/// A locale of the runtime while it lives. ctest names the folder that holds the ones of the build.
class locale_for_a_test {
public:
    explicit locale_for_a_test(char const * name, int category = LC_ALL)
        : set(std::setlocale(category, name) != nullptr)
    {
    }
    locale_for_a_test(locale_for_a_test const &) = delete;
    locale_for_a_test & operator=(locale_for_a_test const &) = delete;
    ~locale_for_a_test() { std::setlocale(LC_ALL, "C"); }

    bool const set;
};
