// SPDX-License-Identifier: MIT
#include "zel/values/rect.h"

#include "zel/values/format_of_32_bits.h"
#include <ostream>

namespace zel {

string rect::to_string(char const * format)
{
    string text;
    text.format(format_of_32_bits(format).c_str(), left, top, right, bottom);
    return text;
}

std::ostream & operator<<(std::ostream & stream, rect const & value)
{
    return stream << rect(value).to_string("{left %d, top %d, right %d, bottom %d}");
}

} // namespace zel
