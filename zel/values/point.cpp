// SPDX-License-Identifier: MIT
#include "zel/values/point.h"

#include "zel/values/format_of_32_bits.h"
#include <ostream>

namespace zel {

string point::to_string(char const * format)
{
    string text;
    text.format(format_of_32_bits(format).c_str(), x, y);
    return text;
}

std::ostream & operator<<(std::ostream & stream, point const & value)
{
    return stream << point(value).to_string("{x %d, y %d}");
}

} // namespace zel
