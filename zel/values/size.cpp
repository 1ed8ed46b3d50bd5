// SPDX-License-Identifier: MIT
#include "zel/values/size.h"

#include "zel/values/format_of_32_bits.h"
#include <ostream>

namespace zel {

string size::to_string(char const * format)
{
    string text;
    text.format(format_of_32_bits(format).c_str(), cx, cy);
    return text;
}

std::ostream & operator<<(std::ostream & stream, size const & value)
{
    return stream << size(value).to_string("{cx %d, cy %d}");
}

} // namespace zel
