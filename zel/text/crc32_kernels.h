// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

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

/// Carry-less multiplication, 128 bits wide: needs PCLMULQDQ and SSE4.1.
std::uint32_t by_folding_128(std::uint32_t crc, unsigned char const * data,
                             std::size_t length) noexcept;

/// Carry-less multiplication, 512 bits wide: needs VPCLMULQDQ and AVX-512F beside those.
std::uint32_t by_folding_512(std::uint32_t crc, unsigned char const * data,
                             std::size_t length) noexcept;

/// Whether this processor, and the host, which has to save the registers, can run them.
bool has_folding_128() noexcept;
bool has_folding_512() noexcept;

/// The fastest of the three here. The first call finds it out and replaces the pointer; all that
/// threads can race for is which of them writes the same value.
extern constinit std::atomic<kernel> by_fastest;

} // namespace zel::crc32_kernels
