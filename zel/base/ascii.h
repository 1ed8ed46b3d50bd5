// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <string_view>

/// Letters and digits of ASCII, whatever the locale says.
namespace zel::ascii {

constexpr bool is_capital(char c) noexcept { return c >= 'A' && c <= 'Z'; }
constexpr bool is_small(char c) noexcept { return c >= 'a' && c <= 'z'; }
constexpr bool is_letter(char c) noexcept { return is_capital(c) || is_small(c); }
constexpr bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }

constexpr char lower(char c) noexcept
{
    return is_capital(c) ? static_cast<char>(c + ('a' - 'A')) : c;
}
constexpr char upper(char c) noexcept
{
    return is_small(c) ? static_cast<char>(c - ('a' - 'A')) : c;
}

constexpr bool equal_without_case(std::string_view a, std::string_view b) noexcept
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return lower(x) == lower(y);
           });
}

} // namespace zel::ascii
