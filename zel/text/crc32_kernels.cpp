// SPDX-License-Identifier: MIT
#include "zel/text/crc32_kernels.h"

#include <atomic>
#include <cpuid.h>
#include <cstring>
#include <immintrin.h>

// V. Gopal and others, "Fast CRC Computation for Generic Polynomials Using PCLMULQDQ Instruction",
// Intel, 2009, in its bit-reflected form.
//
// A block of data is a polynomial over GF(2) whose highest power is the lowest bit of its first
// byte, and the checksum of it is the block times x^32, modulo P. Of a long block the first 128
// bits can be moved D bits back, onto later ones, by multiplying them with x^D mod P: the checksum
// stays the same, and the block is shorter. What is left in the end is reduced by Barrett's method.

namespace zel::crc32_kernels {
namespace {

constexpr std::uint32_t reflected_p = 0xEDB88320; // x^0 is the highest bit; x^32 is left out

constexpr slices make_table()
{
    slices made{};
    for (std::uint32_t i = 0; i < 256; ++i) {
        std::uint32_t c = i;
        for (int bit = 0; bit < 8; ++bit) {
            c = c >> 1 ^ (c & 1 ? reflected_p : 0);
        }
        made[0][i] = c;
    }
    for (std::size_t k = 1; k < made.size(); ++k) {
        for (std::size_t i = 0; i < 256; ++i) {
            made[k][i] = made[k - 1][i] >> 8 ^ made[0][made[k - 1][i] & 0xFF];
        }
    }
    return made;
}

// x^n mod P, reflected in 33 bits so that x^0 is bit 32.
constexpr std::int64_t power(unsigned n)
{
    std::uint32_t r = 0x80000000;
    for (unsigned i = 0; i < n; ++i) {
        r = r >> 1 ^ (r & 1 ? reflected_p : 0);
    }
    return std::int64_t{r} << 1;
}

// The factors that move 128 bits D bits back: for the low 64 bits, which are the higher powers, and
// for the high 64. The product of two reflected numbers comes out one bit low, and the 33 bits of a
// factor make it 31 more: x^32 too much for one half and, less the 64 bits between them, x^32 too
// little for the other.
constexpr std::int64_t low_factor(unsigned distance) { return power(distance + 32); }
constexpr std::int64_t high_factor(unsigned distance) { return power(distance - 32); }

// x^96 divided by P, without the lowest power, reflected: x^64 is bit 0.
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

std::uint32_t load_32(unsigned char const * data)
{
    std::uint32_t value;
    std::memcpy(&value, data, sizeof value);
    return value;
}

std::uint64_t load_64(unsigned char const * data)
{
    std::uint64_t value;
    std::memcpy(&value, data, sizeof value);
    return value;
}

// As all below, it takes the checksum with its bits inverted and returns it in its final form.
std::uint32_t by_bytes(std::uint32_t crc, unsigned char const * data, std::size_t length)
{
    for (; length != 0; --length) {
        crc = crc >> 8 ^ table[0][(crc & 0xFF) ^ *data++];
    }
    return ~crc;
}

// What four bytes add that have `behind` bytes behind them in the same step.
std::uint32_t slice(std::uint32_t bytes, std::size_t behind)
{
    return table[behind + 3][bytes & 0xFF] ^ table[behind + 2][bytes >> 8 & 0xFF]
        ^ table[behind + 1][bytes >> 16 & 0xFF] ^ table[behind][bytes >> 24];
}

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
    // To 96 bits, x^95 being bit 0; the quotient by P of the upper 64 of them; the rest.
    __m128i const factor = _mm_set_epi64x(quotient_of_x96(), power(96));
    __m128i const p = _mm_set_epi64x(0, std::int64_t{reflected_p} << 1 | 1);
    __m128i const wide
        = _mm_xor_si128(_mm_clmulepi64_si128(block, factor, 0x00), _mm_srli_si128(block, 8));
    __m128i const quotient = _mm_clmulepi64_si128(wide, factor, 0x10);
    __m128i const multiple = _mm_clmulepi64_si128(quotient, p, 0x00);
    return ~static_cast<std::uint32_t>(_mm_extract_epi32(_mm_xor_si128(wide, multiple), 2));
}

// 4 to 15 bytes. Zeros in front of a block add nothing, so it is padded there.
ZEL_FOLDS_128 std::uint32_t short_by_folding(std::uint32_t crc, unsigned char const * data,
                                             std::size_t length)
{
    std::uint64_t low = 0;
    std::uint64_t high;
    if (length >= 8) {
        std::size_t const more = length - 8;
        if (more != 0) {
            low = (load_64(data) ^ crc) << 8 * (8 - more);
        }
        high = load_64(data + more) ^ std::uint64_t{crc} >> 8 * more;
    } else {
        std::size_t const more = length - 4;
        std::uint64_t const bytes = load_32(data) | std::uint64_t{load_32(data + more)} << 8 * more;
        high = (bytes ^ crc) << 8 * (4 - more);
    }
    return reduced(_mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low)));
}

// For _mm_shuffle_epi8, from byte n on: brings the first n bytes to the end. From byte n + 16 on:
// brings all behind the first n to the front. What is negative gives 0.
constexpr signed char shifts[48] = {
    // clang-format off
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
     0,  1,  2,  3,  4,  5,  6,  7,  8,  9, 10, 11, 12, 13, 14, 15,
    -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
    // clang-format on
};

// `block` stands for all before `data`, of which fewer than 64 bytes are left; 16 bytes before
// `data` can be read.
ZEL_FOLDS_128 std::uint32_t finished(__m128i block, unsigned char const * data, std::size_t length)
{
    for (; length >= 16; length -= 16, data += 16) {
        block = _mm_xor_si128(moved<128>(block), load(data));
    }
    if (length != 0) {
        // The first bytes of the block move back onto a whole one, which is made of its other bytes
        // and of what is left.
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
        return length < 4 ? by_bytes(crc, data, length) : short_by_folding(crc, data, length);
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
    // 0x96: the exclusive or of all three.
    return _mm512_ternarylogic_epi64(_mm512_clmulepi64_epi128(block, factors, 0x00),
                                     _mm512_clmulepi64_epi128(block, factors, 0x11), other, 0x96);
}

// With a mask of all, as GCC 12 warns of its own header where there is none.
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
    // Each lane onto the last one.
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

struct features {
    bool folding_128;
    bool folding_512;
};

// Not __builtin_cpu_supports: it brings a function of the compiler's run-time along that runs when
// the library is loaded.
[[gnu::cold]] features find_features()
{
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0) {
        return {};
    }
    constexpr unsigned needed = bit_PCLMUL | bit_SSE4_1;
    features found{.folding_128 = (ecx & needed) == needed, .folding_512 = false};
    if (found.folding_128 && (ecx & bit_OSXSAVE) != 0
        && __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0) {
        unsigned saved = 0;
        __asm__("xgetbv" : "=a"(saved), "=d"(edx) : "c"(0));
        constexpr unsigned all_of_zmm = 0xE6; // XMM, YMM, masks and both parts of ZMM
        found.folding_512 = (ebx & bit_AVX512F) != 0 && (ecx & bit_VPCLMULQDQ) != 0
            && (saved & all_of_zmm) == all_of_zmm;
    }
    return found;
}

std::uint32_t find_fastest(std::uint32_t crc, unsigned char const * data,
                           std::size_t length) noexcept
{
    features const found = find_features();
    kernel const best = found.folding_512 ? by_folding_512
        : found.folding_128               ? by_folding_128
                                          : by_slices;
    by_fastest.store(best, std::memory_order_relaxed);
    return best(crc, data, length);
}

} // namespace

constinit slices const table = make_table();
constinit std::atomic<kernel> by_fastest = find_fastest;

std::uint32_t by_slices(std::uint32_t crc, unsigned char const * data, std::size_t length) noexcept
{
    crc = ~crc;
    for (; length >= 16; data += 16, length -= 16) {
        crc = slice(load_32(data) ^ crc, 12) ^ slice(load_32(data + 4), 8)
            ^ slice(load_32(data + 8), 4) ^ slice(load_32(data + 12), 0);
    }
    for (; length >= 4; data += 4, length -= 4) {
        crc = slice(load_32(data) ^ crc, 0);
    }
    return by_bytes(crc, data, length);
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

bool has_folding_128() noexcept { return find_features().folding_128; }
bool has_folding_512() noexcept { return find_features().folding_512; }

} // namespace zel::crc32_kernels
