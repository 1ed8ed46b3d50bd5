// SPDX-License-Identifier: MIT
#pragma once

#include <arm_neon.h>
#include <cstdint>

namespace zel {

/// 16 bytes that are worked on at once (block16.h), in a register of NEON, which every 64-bit Arm
/// processor has. block16_portable.h tells what each operation means.
class block16_aarch64 {
public:
    block16_aarch64() noexcept = default;

    static block16_aarch64 load(void const * memory) noexcept
    {
        return vld1q_u8(static_cast<std::uint8_t const *>(memory));
    }
    void store(void * memory) const noexcept
    {
        vst1q_u8(static_cast<std::uint8_t *>(memory), bytes_);
    }
    static block16_aarch64 filled(char byte) noexcept
    {
        return vdupq_n_u8(static_cast<std::uint8_t>(byte));
    }
    static block16_aarch64 of_words(std::uint64_t first, std::uint64_t second) noexcept
    {
        return vreinterpretq_u8_u64(vcombine_u64(vcreate_u64(first), vcreate_u64(second)));
    }

    friend block16_aarch64 operator&(block16_aarch64 a, block16_aarch64 b) noexcept
    {
        return vandq_u8(a.bytes_, b.bytes_);
    }
    friend block16_aarch64 operator|(block16_aarch64 a, block16_aarch64 b) noexcept
    {
        return vorrq_u8(a.bytes_, b.bytes_);
    }
    friend block16_aarch64 operator^(block16_aarch64 a, block16_aarch64 b) noexcept
    {
        return veorq_u8(a.bytes_, b.bytes_);
    }
    friend block16_aarch64 without(block16_aarch64 a, block16_aarch64 b) noexcept
    {
        return vbicq_u8(a.bytes_, b.bytes_);
    }
    friend block16_aarch64 operator+(block16_aarch64 a, block16_aarch64 b) noexcept
    {
        return vaddq_u8(a.bytes_, b.bytes_);
    }
    friend block16_aarch64 equal(block16_aarch64 a, block16_aarch64 b) noexcept
    {
        return vceqq_u8(a.bytes_, b.bytes_);
    }
    friend block16_aarch64 greater(block16_aarch64 a, block16_aarch64 b) noexcept
    {
        return vcgtq_s8(vreinterpretq_s8_u8(a.bytes_), vreinterpretq_s8_u8(b.bytes_));
    }
    friend block16_aarch64 smaller(block16_aarch64 a, block16_aarch64 b) noexcept
    {
        return vminq_u8(a.bytes_, b.bytes_);
    }

    block16_aarch64 low_nibbles() const noexcept { return vandq_u8(bytes_, vdupq_n_u8(0x0F)); }
    block16_aarch64 high_nibbles() const noexcept { return vshrq_n_u8(bytes_, 4); }
    friend block16_aarch64 interleave_first(block16_aarch64 a, block16_aarch64 b) noexcept
    {
        return vzip1q_u8(a.bytes_, b.bytes_);
    }
    friend block16_aarch64 interleave_last(block16_aarch64 a, block16_aarch64 b) noexcept
    {
        return vzip2q_u8(a.bytes_, b.bytes_);
    }

    std::uint32_t sign_bits() const noexcept
    {
        // Each byte becomes the bit of its place, and the bits of eight bytes add up to one byte.
        uint8x16_t const negative = vreinterpretq_u8_s8(vshrq_n_s8(vreinterpretq_s8_u8(bytes_), 7));
        constexpr std::uint64_t places = 0x8040201008040201;
        uint8x16_t const bits = vandq_u8(negative, of_words(places, places).bytes_);
        return vaddv_u8(vget_low_u8(bits)) | std::uint32_t{vaddv_u8(vget_high_u8(bits))} << 8;
    }

private:
    block16_aarch64(uint8x16_t bytes) noexcept
        : bytes_(bytes)
    {
    }

    uint8x16_t bytes_;
};

} // namespace zel
