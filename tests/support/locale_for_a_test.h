// SPDX-License-Identifier: MIT
#pragma once

#include <clocale>
#include <stdexcept>
#include <string>

/// A locale of the runtime while it lives. The ones of the build are found by every test program.
class locale_for_a_test {
public:
    explicit locale_for_a_test(char const * name, int category = LC_ALL)
    {
        if (std::setlocale(category, name) == nullptr) {
            throw std::runtime_error(std::string("there is no locale ") + name);
        }
    }
    locale_for_a_test(locale_for_a_test const &) = delete;
    locale_for_a_test & operator=(locale_for_a_test const &) = delete;
    ~locale_for_a_test() { std::setlocale(LC_ALL, "C"); }
};
