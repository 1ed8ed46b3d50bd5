// SPDX-License-Identifier: MIT
#include "zel/values/size.h"

#include <ostream>

namespace zel {

string size::to_string(char const * format)
{
    // 64 bits each, for "%ld" as for "%d": see point::to_string.
    string text;
    text.format(format, std::int64_t{cx}, std::int64_t{cy});
    return text;
}

std::ostream & operator<<(std::ostream & stream, size const & value)
{
    return stream << size(value).to_string("{cx %d, cy %d}");
}

} // namespace zel
