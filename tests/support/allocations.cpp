// SPDX-License-Identifier: MIT
#include "tests/support/allocations.h"

#include <cstdlib>
#include <new>

namespace allocations {
constinit thread_local std::uint64_t made = 0;
constinit thread_local std::uint64_t left = all;
} // namespace allocations

// The other forms of the standard library call these. Not inlined, or the compiler takes new and
// free for an unequal pair.
[[gnu::noinline]] void * operator new(std::size_t size)
{
    using namespace allocations;
    void * const memory = left == 0 ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++made;
    left -= left == all ? 0 : 1;
    return memory;
}
// Of this form the address sanitizer has one of its own.
[[gnu::noinline]] void * operator new(std::size_t size, std::nothrow_t const &) noexcept
{
    try {
        return ::operator new(size);
    } catch (std::bad_alloc const &) {
        return nullptr;
    }
}
[[gnu::noinline]] void operator delete(void * memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void * memory, std::size_t) noexcept { std::free(memory); }
