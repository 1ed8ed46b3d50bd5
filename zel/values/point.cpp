// SPDX-License-Identifier: MIT
#include "zel/values/point.h"

#include <ostream>

namespace zel {

string point::to_string(char const * format)
{
    // An argument takes a slot of 64 bits whatever its type, and with the sign in all of it "%d"
    // and
    // "%ld" print the same number.
    string text;
    text.format(format, std::int64_t{x}, std::int64_t{y});
    return text;
}

std::ostream & operator<<(std::ostream & stream, point const & value)
{
    return stream << point(value).to_string("{x %d, y %d}");
}

} // namespace zel
