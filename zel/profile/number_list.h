// SPDX-License-Identifier: MIT
#pragma once

#include "zel/text/string.h"
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

/// Reads and writes numbers in the texts of settings, for the stores that keep them as text.
namespace zel {

/// The decimal text of a number, without heap memory.
class decimal_text {
public:
    explicit decimal_text(std::int32_t number) noexcept
        : size_(static_cast<std::size_t>(std::to_chars(text_, text_ + sizeof text_, number).ptr
                                         - text_))
    {
    }

    operator std::string_view() const noexcept { return {text_, size_}; }

private:
    char text_[11]; // "-2147483648"
    std::size_t size_;
};

/// The number at the start of a text, after white space: a sign and digits up to the first other
/// byte. 0 when there is none; the nearest number when it does not fit 32 bits.
std::int32_t leading_number(std::string_view text) noexcept;

/// The numbers of a list up to the first empty one.
std::vector<std::int32_t> split_numbers(std::string_view text, char separator);

/// `name` directly followed by the decimal text of `number`. The name ends at its first NUL.
string numbered_name(string const & name, std::int32_t number);

} // namespace zel
