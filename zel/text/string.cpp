// SPDX-License-Identifier: MIT
#include "zel/text/string.h"

#include "zel/core/exception.h"

namespace zel {

constinit char const string::ms_default_white_space_string[5] = " \t\n\r";
constinit char const string::ms_default_delimeter_string[26] = " \t\n\r[]{}(),.:;!%^&*+-=/?|";

void string::throw_null_ptr_exception()
{
    throw memory_exception(memory_exception::null_pointer, "zel::string");
}

string string::mid(unsigned int first, unsigned int last) const
{
    unsigned int const count = last - first; // wraps to a large number when last lies in front
    return string(base::substr(first, count));
}

} // namespace zel
