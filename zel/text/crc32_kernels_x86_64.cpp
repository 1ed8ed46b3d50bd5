// SPDX-License-Identifier: MIT
#include "zel/base/load_word.h"
#include "zel/base/processor_features_x86_64.h"
#include "zel/text/crc32_folding.h"
#include "zel/text/crc32_kernels.h"
#include <immintrin.h>

namespace zel::crc32_kernels {
namespace {

using crc32_folding::high_factor;
using crc32_folding::low_factor;

// All functions below take the checksum with its bits inverted and return it in its final form.

#define ZEL_FOLDS_128 [[gnu::target("pclmul,sse4.1"), gnu::always_inline]] inline
#define ZEL_FOLDS_512 [[gnu::target("avx512f,vpclmulqdq,pclmul,sse4.1"), gnu::always_inline]] inline

ZEL_FOLDS_128 __m128i load(unsigned char const * data)
{
    return _mm_loadu_si128(reinterpret_cast<__m128i const *>(data));
}

template <unsigned distance> ZEL_FOLDS_128 __m128i moved(__m128i block)
{
    __m128i const factors = _mm_set_epi64x(high_factor(distance), low_factor(distance));
    return _mm_xor_si128(_mm_clmulepi64_si128(block, factors, 0x00),
                         _mm_clmulepi64_si128(block, factors, 0x11));
}

// The checksum of the last 128 bits, in its final form.
ZEL_FOLDS_128 std::uint32_t reduced(__m128i block)
{
    // Reduce to 96 bits (x^95 is bit 0), then take the quotient of the upper 64 of them by P, then
    // the remainder.
    __m128i const factor
        = _mm_set_epi64x(crc32_folding::quotient_of_x96(), crc32_folding::power(96));
    __m128i const p = _mm_set_epi64x(0, std::int64_t{crc32_folding::reflected_p} << 1 | 1);
    __m128i const wide
        = _mm_xor_si128(_mm_clmulepi64_si128(block, factor, 0x00), _mm_srli_si128(block, 8));
    __m128i const quotient = _mm_clmulepi64_si128(wide, factor, 0x10);
    __m128i const multiple = _mm_clmulepi64_si128(quotient, p, 0x00);
    return ~static_cast<std::uint32_t>(_mm_extract_epi32(_mm_xor_si128(wide, multiple), 2));
}

// For 4 to 15 bytes. Zeros in front of a block do not change the checksum, so the block is padded
// there.
ZEL_FOLDS_128 std::uint32_t short_by_folding(std::uint32_t crc, unsigned char const * data,
                                             std::size_t length)
{
    std::uint64_t low = 0;
    std::uint64_t high;
    if (length >= 8) {
        std::size_t const more = length - 8;
        if (more != 0) {
            low = (load_word<std::uint64_t>(data) ^ crc) << 8 * (8 - more);
        }
        high = load_word<std::uint64_t>(data + more) ^ std::uint64_t{crc} >> 8 * more;
    } else {
        std::size_t const more = length - 4;
        std::uint64_t const bytes = load_word<std::uint32_t>(data)
            | std::uint64_t{load_word<std::uint32_t>(data + more)} << 8 * more;
        high = (bytes ^ crc) << 8 * (4 - more);
    }
    return reduced(_mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low)));
}

// Masks for _mm_shuffle_epi8. The mask at byte n moves the first n bytes to the end; the mask at
// byte n + 16 moves all bytes after the first n to the front. Negative entries give 0.
constexpr signed char shifts[48] = {
    // clang-format off
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
     0,  1,  2,  3,  4,  5,  6,  7,  8,  9, 10, 11, 12, 13, 14, 15,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    // clang-format on
};

// `block` represents everything before `data`. Fewer than 64 bytes are left at `data`, and the 16
// bytes before it are readable.
ZEL_FOLDS_128 std::uint32_t finished(__m128i block, unsigned char const * data, std::size_t length)
{
    for (; length >= 16; length -= 16, data += 16) {
        block = _mm_xor_si128(moved<128>(block), load(data));
    }
    if (length != 0) {
        // The first bytes of the block are folded onto a full block, which consists of its other
        // bytes and the remaining data.
        auto const shift = reinterpret_cast<unsigned char const *>(shifts) + length;
        __m128i const front = _mm_shuffle_epi8(block, load(shift));
        __m128i const to_front = load(shift + 16);
        __m128i const back = _mm_blendv_epi8(_mm_shuffle_epi8(block, to_front),
                                             load(data + length - 16), to_front);
        block = _mm_xor_si128(moved<128>(front), back);
    }
    return reduced(block);
}

ZEL_FOLDS_128 std::uint32_t fold_128(std::uint32_t crc, unsigned char const * data,
                                     std::size_t length)
{
    if (length < 16) {
        return length < 4 ? by_slices(~crc, data, length) : short_by_folding(crc, data, length);
    }
    __m128i a = _mm_xor_si128(load(data), _mm_cvtsi32_si128(static_cast<int>(crc)));
    if (length < 64) {
        return finished(a, data + 16, length - 16);
    }
    __m128i b = load(data + 16);
    __m128i c = load(data + 32);
    __m128i d = load(data + 48);
    for (data += 64, length -= 64; length >= 64; data += 64, length -= 64) {
        a = _mm_xor_si128(moved<512>(a), load(data));
        b = _mm_xor_si128(moved<512>(b), load(data + 16));
        c = _mm_xor_si128(moved<512>(c), load(data + 32));
        d = _mm_xor_si128(moved<512>(d), load(data + 48));
    }
    a = _mm_xor_si128(_mm_xor_si128(moved<384>(a), moved<256>(b)), _mm_xor_si128(moved<128>(c), d));
    return finished(a, data, length);
}

template <unsigned distance> ZEL_FOLDS_512 __m512i moved_onto(__m512i block, __m512i other)
{
    __m512i const factors = _mm512_set4_epi64(high_factor(distance), low_factor(distance),
                                              high_factor(distance), low_factor(distance));
    // 0x96 is the exclusive or of all three.
    return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(block, factors, 0x00),
                                     _mm512_clmulepi64_epi128(block, factors, 0x11), other, 0x96);
}

// Uses a full mask, because GCC 12 warns about its own header for the form without a mask.
template <int index> ZEL_FOLDS_512 __m128i lane(__m512i block)
{
    return _mm512_maskz_extracti32x4_epi32(0xF, block, index);
}

ZEL_FOLDS_512 std::uint32_t fold_512(std::uint32_t crc, unsigned char const * data,
                                     std::size_t length)
{
    if (length < 256) {
        return fold_128(crc, data, length);
    }
    __m512i a = _mm512_xor_si512(_mm512_loadu_si512(data),
                                 _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(crc))));
    __m512i b = _mm512_loadu_si512(data + 64);
    __m512i c = _mm512_loadu_si512(data + 128);
    __m512i d = _mm512_loadu_si512(data + 192);
    for (data += 256, length -= 256; length >= 256; data += 256, length -= 256) {
        a = moved_onto<2048>(a, _mm512_loadu_si512(data));
        b = moved_onto<2048>(b, _mm512_loadu_si512(data + 64));
        c = moved_onto<2048>(c, _mm512_loadu_si512(data + 128));
        d = moved_onto<2048>(d, _mm512_loadu_si512(data + 192));
    }
    __m512i const zero = _mm512_setzero_si512();
    d = _mm512_ternarylogic_epi64(moved_onto<1536>(a, d), moved_onto<1024>(b, zero),
                                  moved_onto<512>(c, zero), 0x96);
    for (; length >= 64; data += 64, length -= 64) {
        d = moved_onto<512>(d, _mm512_loadu_si512(data));
    }
    // Fold each lane onto the last one.
    __m512i const factors
        = _mm512_set_epi64(0, 0, high_factor(128), low_factor(128), high_factor(256),
                           low_factor(256), high_factor(384), low_factor(384));
    __m512i const lanes = _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(d, factors, 0x00),
                                                    _mm512_clmulepi64_epi128(d, factors, 0x11),
                                                    _mm512_maskz_mov_epi64(0xC0, d), 0x96);
    return finished(_mm_xor_si128(_mm_xor_si128(lane<0>(lanes), lane<1>(lanes)),
                                  _mm_xor_si128(lane<2>(lanes), lane<3>(lanes))),
                    data, length);
}

[[gnu::target("pclmul,sse4.1")]] std::uint32_t
by_folding_128(std::uint32_t crc, unsigned char const * data, std::size_t length) noexcept
{
    return fold_128(~crc, data, length);
}

[[gnu::target("avx512f,vpclmulqdq,pclmul,sse4.1")]] std::uint32_t
by_folding_512(std::uint32_t crc, unsigned char const * data, std::size_t length) noexcept
{
    return fold_512(~crc, data, length);
}

} // namespace

std::span<choice const> of_processor() noexcept
{
    static constexpr choice all[] = {
        {"folding_512", by_folding_512,
         []() noexcept { return find_processor_features().folds_512; }},
        {"folding_128", by_folding_128,
         []() noexcept { return find_processor_features().folds_128; }},
    };
    return all;
}

} // namespace zel::crc32_kernels
