// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// The calls of `new`, all forms, on each thread of a program that is linked with `zel_allocations`.
namespace allocations {
extern thread_local std::uint64_t made;
extern thread_local std::uint64_t left; // how many may succeed; no limit as long as it is `all`

constexpr std::uint64_t all = UINT64_MAX;

/// Allows `count` allocations on this thread while it lives.
class limit {
public:
    explicit limit(std::uint64_t count) { left = count; }
    ~limit() { left = all; }
    limit(limit const &) = delete;
    limit & operator=(limit const &) = delete;
};
} // namespace allocations
