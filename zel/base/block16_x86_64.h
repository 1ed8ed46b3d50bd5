// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <emmintrin.h>

namespace zel {

/// 16 bytes in one operation (block16.h), in a register of SSE2, which every x86-64 processor has.
/// block16_portable.h defines each operation.
class block16_x86_64 {
public:
    block16_x86_64() noexcept = default;

    static block16_x86_64 load(void const * memory) noexcept
    {
        return _mm_loadu_si128(static_cast<__m128i const *>(memory));
    }
    void store(void * memory) const noexcept
    {
        _mm_storeu_si128(static_cast<__m128i *>(memory), bytes_);
    }
    static block16_x86_64 filled(char byte) noexcept { return _mm_set1_epi8(byte); }
    static block16_x86_64 of_words(std::uint64_t first, std::uint64_t second) noexcept
    {
        return _mm_set_epi64x(static_cast<std::int64_t>(second), static_cast<std::int64_t>(first));
    }

    friend block16_x86_64 operator&(block16_x86_64 a, block16_x86_64 b) noexcept
    {
        return _mm_and_si128(a.bytes_, b.bytes_);
    }
    friend block16_x86_64 operator|(block16_x86_64 a, block16_x86_64 b) noexcept
    {
        return _mm_or_si128(a.bytes_, b.bytes_);
    }
    friend block16_x86_64 operator^(block16_x86_64 a, block16_x86_64 b) noexcept
    {
        return _mm_xor_si128(a.bytes_, b.bytes_);
    }
    friend block16_x86_64 without(block16_x86_64 a, block16_x86_64 b) noexcept
    {
        return _mm_andnot_si128(b.bytes_, a.bytes_);
    }
    friend block16_x86_64 operator+(block16_x86_64 a, block16_x86_64 b) noexcept
    {
        return _mm_add_epi8(a.bytes_, b.bytes_);
    }
    friend block16_x86_64 equal(block16_x86_64 a, block16_x86_64 b) noexcept
    {
        return _mm_cmpeq_epi8(a.bytes_, b.bytes_);
    }
    friend block16_x86_64 greater(block16_x86_64 a, block16_x86_64 b) noexcept
    {
        return _mm_cmpgt_epi8(a.bytes_, b.bytes_);
    }
    friend block16_x86_64 smaller(block16_x86_64 a, block16_x86_64 b) noexcept
    {
        return _mm_min_epu8(a.bytes_, b.bytes_);
    }

    block16_x86_64 low_nibbles() const noexcept
    {
        return _mm_and_si128(bytes_, _mm_set1_epi8(0x0F));
    }
    block16_x86_64 high_nibbles() const noexcept
    {
        return _mm_and_si128(_mm_srli_epi16(bytes_, 4), _mm_set1_epi8(0x0F));
    }
    friend block16_x86_64 interleave_first(block16_x86_64 a, block16_x86_64 b) noexcept
    {
        return _mm_unpacklo_epi8(a.bytes_, b.bytes_);
    }
    friend block16_x86_64 interleave_last(block16_x86_64 a, block16_x86_64 b) noexcept
    {
        return _mm_unpackhi_epi8(a.bytes_, b.bytes_);
    }

    std::uint32_t sign_bits() const noexcept
    {
        return static_cast<std::uint32_t>(_mm_movemask_epi8(bytes_));
    }

private:
    block16_x86_64(__m128i bytes) noexcept
        : bytes_(bytes)
    {
    }

    __m128i bytes_;
};

} // namespace zel
