// SPDX-License-Identifier: MIT
#pragma once

// Objects of the standard library cross between a program and zel, so both have to be compiled with
// the same one. The name of the symbol below says which one it is, and each file that includes zel
// asks for its own: a program of another world ends with one undefined reference that tells why.

#include <version>

#if defined(_LIBCPP_VERSION)
#define ZEL_STANDARD_LIBRARY this_library_was_not_built_with_libcxx
#elif defined(_GLIBCXX_USE_CXX11_ABI) && !_GLIBCXX_USE_CXX11_ABI
#error "zel needs the C++11 strings of libstdc++: compile with _GLIBCXX_USE_CXX11_ABI=1"
#elif defined(_GLIBCXX_DEBUG)
#define ZEL_STANDARD_LIBRARY this_library_was_not_built_with_GLIBCXX_DEBUG
#else
#define ZEL_STANDARD_LIBRARY this_library_was_not_built_with_plain_libstdcxx
#endif

namespace zel {
extern __attribute__((visibility("default"))) char const ZEL_STANDARD_LIBRARY;

namespace detail {
[[gnu::used, gnu::retain, gnu::visibility("hidden")]] inline constexpr char const * standard_library
    = &ZEL_STANDARD_LIBRARY;
} // namespace detail
} // namespace zel
