// SPDX-License-Identifier: MIT
#include "zel/values/rect.h"

#include <ostream>

namespace zel {

string rect::to_string(char const * format)
{
    // 64 bits each, for "%ld" as for "%d": see point::to_string.
    string text;
    text.format(format, std::int64_t{left}, std::int64_t{top}, std::int64_t{right},
                std::int64_t{bottom});
    return text;
}

std::ostream & operator<<(std::ostream & stream, rect const & value)
{
    return stream << rect(value).to_string("{left %d, top %d, right %d, bottom %d}");
}

} // namespace zel
