// SPDX-License-Identifier: MIT
#include "zel/profile/number_list.h"

#include "zel/base/ascii.h"
#include <algorithm>
#include <limits>

namespace zel {

std::int32_t leading_number(std::string_view text) noexcept
{
    using limits = std::numeric_limits<std::int32_t>;
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    bool const negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    std::int64_t number = 0;
    for (char const c : text) {
        if (!ascii::is_digit(c)) {
            break;
        }
        number = std::min(number * 10 + (c - '0'), std::int64_t{limits::max()} + 1);
    }
    return static_cast<std::int32_t>(negative ? -number
                                              : std::min<std::int64_t>(number, limits::max()));
}

std::vector<std::int32_t> split_numbers(std::string_view text, char separator)
{
    std::vector<std::int32_t> numbers;
    for (;;) {
        std::string_view const token = text.substr(0, text.find(separator));
        if (token.empty()) {
            return numbers;
        }
        numbers.push_back(leading_number(token));
        if (token.size() == text.size()) {
            return numbers;
        }
        text.remove_prefix(token.size() + 1);
    }
}

string numbered_name(string const & name, std::int32_t number)
{
    std::string_view const front = name.c_str();
    decimal_text const digits(number);
    string result;
    result.reserve(front.size() + std::string_view(digits).size());
    result.append(front).append(digits);
    return result;
}

} // namespace zel
