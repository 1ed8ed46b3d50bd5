// SPDX-License-Identifier: MIT
#include "zel/values/format_of_32_bits.h"

#include <algorithm>
#include <string_view>

namespace zel {

string format_of_32_bits(char const * format)
{
    string::validate_ptr(format);
    constexpr std::string_view in_front
        = "0123456789$*.-+ #'I"; // flags, width, precision, position
    constexpr std::string_view modifiers = "lqjzt"; // 'h' and "hh" make an `int` smaller
    std::string_view const text = format;
    string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] != '%') {
            result += text[i++];
            continue;
        }
        std::size_t const modifier = std::min(text.find_first_not_of(in_front, i + 1), text.size());
        std::size_t const letter
            = std::min(text.find_first_not_of(modifiers, modifier), text.size());
        std::size_t const end = std::min(letter + 1, text.size());
        bool const of_integer = letter < text.size()
            && std::string_view("diouxX").find(text[letter]) != std::string_view::npos;
        result += text.substr(i, modifier - i);
        result
            += text.substr(of_integer ? letter : modifier, end - (of_integer ? letter : modifier));
        i = end;
    }
    return result;
}

} // namespace zel
