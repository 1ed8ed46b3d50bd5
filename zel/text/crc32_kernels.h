// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

/// The implementations of CRC-32. They differ only in speed and in the processor that they need.
///
/// All take the checksum of the preceding bytes, 0 for none, and return the checksum including
/// `length` more bytes. `length` may be any number.
namespace zel::crc32_kernels {

/// Entry `[0][byte]` is the contribution of one byte; entry `[k][byte]` that of the byte followed
/// by k zero bytes.
using slices = std::array<std::array<std::uint32_t, 256>, 16>;
extern constinit slices const table;

using kernel
    = std::uint32_t (*)(std::uint32_t crc, unsigned char const * data, std::size_t length) noexcept;

/// Reads 16 bytes in a step, each with its own table. Runs on every processor.
std::uint32_t by_slices(std::uint32_t crc, unsigned char const * data, std::size_t length) noexcept;

/// An implementation that not every processor supports.
struct choice {
    char const * name;
    kernel compute;
    bool (*runs_here)() noexcept;
};

/// The implementations in this build for its processor (crc32_kernels_PROCESSOR.cpp), fastest
/// first.
std::span<choice const> of_processor() noexcept;

/// The fastest implementation that runs here. The first call determines it and replaces the
/// pointer. If several threads race, all write the same value.
extern constinit std::atomic<kernel> by_fastest;

} // namespace zel::crc32_kernels
