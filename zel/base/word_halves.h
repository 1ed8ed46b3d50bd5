// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// The two halves of a 64-bit word. Lock-free protocols keep two values in one word so that both
/// change in one atomic step.
namespace zel {

constexpr std::uint32_t low_half(std::uint64_t word) noexcept
{
    return static_cast<std::uint32_t>(word);
}

constexpr std::uint32_t high_half(std::uint64_t word) noexcept
{
    return static_cast<std::uint32_t>(word >> 32);
}

constexpr std::uint64_t join_halves(std::uint32_t high, std::uint32_t low) noexcept
{
    return std::uint64_t{high} << 32 | low;
}

/// `word` with another low half.
constexpr std::uint64_t with_low_half(std::uint64_t word, std::uint32_t low) noexcept
{
    return join_halves(high_half(word), low);
}

} // namespace zel
