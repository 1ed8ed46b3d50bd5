// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

/// The ways to compute a CRC-32, which differ in nothing but speed and in the processor they need.
///
/// All take the checksum of what comes before, 0 for nothing, and return it with `length` bytes
/// more. Any `length` will do.
namespace zel::crc32_kernels {

/// Entry `[0][byte]` is what one byte adds; entry `[k][byte]` the same with k zero bytes behind it.
using slices = std::array<std::array<std::uint32_t, 256>, 16>;
extern constinit slices const table;

using kernel
    = std::uint32_t (*)(std::uint32_t crc, unsigned char const * data, std::size_t length) noexcept;

/// 16 bytes a step, each through a table of its own. Runs everywhere.
std::uint32_t by_slices(std::uint32_t crc, unsigned char const * data, std::size_t length) noexcept;

/// A way that not every processor can go.
struct choice {
    char const * name;
    kernel compute;
    bool (*runs_here)() noexcept;
};

/// What this build has for its processor (crc32_kernels_PROCESSOR.cpp), the fastest first.
std::span<choice const> of_processor() noexcept;

/// The fastest way that runs here. The first call finds it and replaces the pointer; threads can
/// race only for which of them writes the same value.
extern constinit std::atomic<kernel> by_fastest;

} // namespace zel::crc32_kernels
