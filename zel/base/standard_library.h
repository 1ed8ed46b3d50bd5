// SPDX-License-Identifier: MIT
#pragma once

// Objects of the standard library are passed between a program and zel, so both have to be compiled
// with the same standard library. The name of the symbol below tells which one was used. Every file
// that includes zel refers to the symbol of its own standard library: if zel has another one,
// linking ends with one undefined reference whose name gives the reason.

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
