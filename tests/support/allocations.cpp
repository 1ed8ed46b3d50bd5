// SPDX-License-Identifier: MIT
#include "tests/support/allocations.h"

#include <cstdlib>
#include <new>

namespace allocations {
constinit thread_local std::uint64_t made = 0;
constinit thread_local std::uint64_t left = all;
} // namespace allocations

// All forms that the tests come through: a sanitizer has each of them, and where one is missing here
// takes its own in place of the standard library's, which would call these. Not inlined, or the
// compiler takes new and free for an unequal pair.
[[gnu::noinline]] void * operator new(std::size_t size, std::nothrow_t const &) noexcept
{
    using namespace allocations;
    void * const memory = left == 0 ? nullptr : std::malloc(size == 0 ? 1 : size);
    if (memory != nullptr) {
        ++made;
        left -= left == all ? 0 : 1;
    }
    return memory;
}
[[gnu::noinline]] void * operator new(std::size_t size)
{
    void * const memory = ::operator new(size, std::nothrow);
    return memory == nullptr ? throw std::bad_alloc() : memory;
}
[[gnu::noinline]] void * operator new[](std::size_t size, std::nothrow_t const &) noexcept
{
    return ::operator new(size, std::nothrow);
}
[[gnu::noinline]] void * operator new[](std::size_t size) { return ::operator new(size); }
[[gnu::noinline]] void operator delete(void * memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void * memory, std::size_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void * memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void * memory, std::size_t) noexcept { std::free(memory); }
