// SPDX-License-Identifier: MIT
#include "zel/platform/paths/path_compare.h"

#include "zel/base/atomic.h"
#include "zel/base/processor_features_x86_64.h"
#include "zel/platform/paths/max_path.h"
#include "zel/platform/paths/path_blocks.h"
#include <cstdint>
#include <immintrin.h>

namespace zel::platform {
namespace {

using path_blocks::case_bit;
using path_blocks::limit;
using path_blocks::shift;

/// `equal_by_16` with registers of twice the size.
[[gnu::target("avx2")]] bool equal_by_32(char const * first, char const * second) noexcept
{
    constexpr unsigned int size = sizeof(__m256i);
    constexpr unsigned int last = max_path - size; // overlaps bytes that are known to be equal
    for (unsigned int i = 0;; i += size) {
        i = i < last ? i : last;
        __m256i const a = _mm256_loadu_si256(reinterpret_cast<__m256i const *>(first + i));
        __m256i const b = _mm256_loadu_si256(reinterpret_cast<__m256i const *>(second + i));
        __m256i const small = _mm256_or_si256(a, _mm256_set1_epi8(case_bit));
        __m256i const letter = _mm256_cmpgt_epi8(_mm256_add_epi8(small, _mm256_set1_epi8(shift)),
                                                 _mm256_set1_epi8(limit));
        __m256i const ignored = _mm256_and_si256(letter, _mm256_set1_epi8(case_bit));
        __m256i const difference = _mm256_andnot_si256(ignored, _mm256_xor_si256(a, b));
        __m256i const equal = _mm256_cmpeq_epi8(difference, _mm256_setzero_si256());
        auto const stop = static_cast<unsigned int>(_mm256_movemask_epi8(
            _mm256_cmpeq_epi8(_mm256_min_epu8(a, equal), _mm256_setzero_si256())));
        if (stop != 0) [[unlikely]] {
            auto const same = static_cast<unsigned int>(_mm256_movemask_epi8(equal));
            return (stop & (0 - stop) & same) != 0; // the lowest bit that stops the loop
        }
    }
}

/// The same with registers of 64 bytes, which hold most paths.
[[gnu::target("avx512bw")]] bool equal_by_64(char const * first, char const * second) noexcept
{
    constexpr unsigned int size = sizeof(__m512i);
    constexpr unsigned int last = max_path - size; // overlaps bytes that are known to be equal
    __m512i const case_bits = _mm512_set1_epi8(case_bit);
    for (unsigned int i = 0;; i += size) {
        i = i < last ? i : last;
        __m512i const a = _mm512_loadu_si512(first + i);
        __m512i const b = _mm512_loadu_si512(second + i);
        __m512i const from_a
            = _mm512_sub_epi8(_mm512_or_si512(a, case_bits), _mm512_set1_epi8('a'));
        __mmask64 const letter = _mm512_cmplt_epu8_mask(from_a, _mm512_set1_epi8('z' - 'a' + 1));
        __m512i const ignored = _mm512_maskz_mov_epi8(letter, case_bits);
        __m512i const difference = (a ^ b) & ~ignored;
        std::uint64_t const same = _mm512_testn_epi8_mask(difference, difference);
        std::uint64_t const stop = ~same | _mm512_testn_epi8_mask(a, a);
        if (stop != 0) [[likely]] {
            return (stop & (0 - stop) & same) != 0; // the lowest bit that stops the loop
        }
    }
}

using equality = bool (*)(char const *, char const *) noexcept;

bool find_fastest(char const * first, char const * second) noexcept;

/// The first call replaces it. If several threads race, all write the same value.
constinit atomic<equality> equal_by_fastest = find_fastest;

[[gnu::cold]] bool find_fastest(char const * first, char const * second) noexcept
{
    processor_features const found = find_processor_features();
    equality const best = found.avx512_bytes ? equal_by_64
        : found.avx2                         ? equal_by_32
                                             : path_blocks::equal_by_16;
    equal_by_fastest.store(best, std::memory_order_relaxed);
    return best(first, second);
}

} // namespace

bool path_equal(char const * first, char const * second) noexcept
{
    return equal_by_fastest.load(std::memory_order_relaxed)(first, second);
}

} // namespace zel::platform
