// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

/// V. Gopal and others, "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ Instruction",
/// Intel, 2009, in its bit-reflected form.
///
/// A block of data is a polynomial over GF(2) whose highest power is the lowest bit of its first
/// byte. Its checksum is the block times x^32, modulo P. The first 128 bits of a long block can be
/// replaced: multiplied by x^D mod P, they are added to the bits D positions later. The checksum
/// stays the same and the block is shorter. The final rest is reduced by Barrett's method.
namespace zel::crc32_folding {

/// P without x^32, reflected: x^0 is the highest bit.
inline constexpr std::uint32_t reflected_p = 0xEDB88320;

/// x^n mod P, reflected in 33 bits so that x^0 is bit 32.
constexpr std::int64_t power(unsigned int n)
{
    std::uint32_t r = 0x80000000;
    for (unsigned int i = 0; i < n; ++i) {
        r = r >> 1 ^ (r & 1 ? reflected_p : 0);
    }
    return std::int64_t{r} << 1;
}

/// The factors that move 128 bits `distance` bits back: one for the low 64 bits, which are the
/// higher powers, and one for the high 64. Reflected product: 1 bit low, plus 31 for the 33-bit
/// factor; hence D+32 for the low half and D-32 for the high.
constexpr std::int64_t low_factor(unsigned int distance) { return power(distance + 32); }
constexpr std::int64_t high_factor(unsigned int distance) { return power(distance - 32); }

/// x^96 divided by P, without the lowest power, reflected: x^64 is bit 0.
constexpr std::int64_t quotient_of_x96()
{
    constexpr std::uint64_t p = 0x104C11DB7;
    std::uint64_t quotient = 0;
    std::uint64_t rest = std::uint64_t{1} << 32;
    for (int bit = 0; bit < 64; ++bit) {
        if ((rest >> 32 & 1) != 0) {
            quotient |= std::uint64_t{1} << bit;
            rest ^= p;
        }
        rest <<= 1;
    }
    return static_cast<std::int64_t>(quotient);
}

} // namespace zel::crc32_folding
