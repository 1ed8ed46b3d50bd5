// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <cstring>

namespace zel {

/// 16 bytes in one operation (block16.h), in plain C++. This form defines what each operation
/// means, and runs on every processor.
class block16_portable {
    using bytes = std::array<unsigned char, 16>;

public:
    block16_portable() noexcept = default;

    /// Load from and store to memory of any alignment.
    static block16_portable load(void const * memory) noexcept
    {
        block16_portable block;
        std::memcpy(block.bytes_.data(), memory, 16);
        return block;
    }
    void store(void * memory) const noexcept { std::memcpy(memory, bytes_.data(), 16); }

    /// The same byte 16 times.
    static block16_portable filled(char byte) noexcept
    {
        block16_portable block;
        block.bytes_.fill(static_cast<unsigned char>(byte));
        return block;
    }

    /// The bytes of two numbers, as the host stores them.
    static block16_portable of_words(std::uint64_t first, std::uint64_t second) noexcept
    {
        std::uint64_t const words[] = {first, second};
        return load(words);
    }

    friend block16_portable operator&(block16_portable a, block16_portable b) noexcept
    {
        return combined(a, b, [](unsigned char x, unsigned char y) { return x & y; });
    }
    friend block16_portable operator|(block16_portable a, block16_portable b) noexcept
    {
        return combined(a, b, [](unsigned char x, unsigned char y) { return x | y; });
    }
    friend block16_portable operator^(block16_portable a, block16_portable b) noexcept
    {
        return combined(a, b, [](unsigned char x, unsigned char y) { return x ^ y; });
    }
    /// `a & ~b`.
    friend block16_portable without(block16_portable a, block16_portable b) noexcept
    {
        return combined(a, b, [](unsigned char x, unsigned char y) { return x & ~y; });
    }

    /// Adds byte by byte; each sum wraps around.
    friend block16_portable operator+(block16_portable a, block16_portable b) noexcept
    {
        return combined(a, b, [](unsigned char x, unsigned char y) { return x + y; });
    }

    /// A comparison sets a byte to 0xFF where it holds, and to 0 elsewhere.
    friend block16_portable equal(block16_portable a, block16_portable b) noexcept
    {
        return combined(a, b, [](unsigned char x, unsigned char y) { return x == y ? 0xFF : 0; });
    }
    /// Compares the bytes as signed numbers.
    friend block16_portable greater(block16_portable a, block16_portable b) noexcept
    {
        return combined(a, b, [](unsigned char x, unsigned char y) {
            return static_cast<signed char>(x) > static_cast<signed char>(y) ? 0xFF : 0;
        });
    }

    /// The smaller of each pair of bytes, compared as unsigned numbers.
    friend block16_portable smaller(block16_portable a, block16_portable b) noexcept
    {
        return combined(a, b, [](unsigned char x, unsigned char y) { return x < y ? x : y; });
    }

    /// The lower and the upper four bits of each byte, as bytes.
    block16_portable low_nibbles() const noexcept { return *this & filled(0x0F); }
    block16_portable high_nibbles() const noexcept
    {
        return combined(*this, *this, [](unsigned char x, unsigned char) { return x >> 4; });
    }

    /// Takes bytes alternately from `a` and `b`, `a` first: from the first eight bytes of each, and
    /// from the last eight.
    friend block16_portable interleave_first(block16_portable a, block16_portable b) noexcept
    {
        return interleaved(a, b, 0);
    }
    friend block16_portable interleave_last(block16_portable a, block16_portable b) noexcept
    {
        return interleaved(a, b, 8);
    }

    /// The highest bit of each byte; the first byte gives bit 0. After a comparison this is one bit
    /// for each byte where it holds.
    std::uint32_t sign_bits() const noexcept
    {
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < 16; ++i) {
            bits |= static_cast<std::uint32_t>(bytes_[i] >> 7) << i;
        }
        return bits;
    }

private:
    template <typename Operation>
    static block16_portable combined(block16_portable const & a, block16_portable const & b,
                                     Operation operation) noexcept
    {
        block16_portable result;
        for (std::size_t i = 0; i < 16; ++i) {
            result.bytes_[i] = static_cast<unsigned char>(operation(a.bytes_[i], b.bytes_[i]));
        }
        return result;
    }
    static block16_portable interleaved(block16_portable const & a, block16_portable const & b,
                                        std::size_t first) noexcept
    {
        block16_portable result;
        for (std::size_t i = 0; i < 8; ++i) {
            result.bytes_[2 * i] = a.bytes_[first + i];
            result.bytes_[2 * i + 1] = b.bytes_[first + i];
        }
        return result;
    }

    bytes bytes_{};
};

} // namespace zel
