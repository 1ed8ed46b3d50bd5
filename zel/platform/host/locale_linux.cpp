// SPDX-License-Identifier: MIT
#include "zel/platform/host/locale.h"

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <langinfo.h>
#include <locale.h>
#include <new>

namespace zel::platform {

bool decimal_point_is_period() noexcept
{
    // Not localeconv(): it fills a structure that all threads share.
    char const * const point = ::nl_langinfo(RADIXCHAR);
    return point[0] == '.' && point[1] == '\0';
}

double c_locale_strtod(char const * text, char const ** end)
{
    // glibc returns a static object for this locale and allocates nothing, so it need not be
    // cached.
    ::locale_t const locale = ::newlocale(LC_ALL_MASK, "C", nullptr);
    if (locale == nullptr) {
        throw std::bad_alloc();
    }
    int const error = errno;
    char * stop = nullptr;
    double const value = ::strtod_l(text, &stop, locale);
    errno = error;
    ::freelocale(locale);
    *end = stop;
    return value;
}

bool only_ascii_has_case() noexcept
{
    return MB_CUR_MAX > 1 || std::strcmp(::nl_langinfo(CODESET), "ANSI_X3.4-1968") == 0;
}

char lower_in_locale(char c) noexcept
{
    return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

char upper_in_locale(char c) noexcept
{
    return static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

} // namespace zel::platform
