// SPDX-License-Identifier: MIT
#include "zel/platform/paths/shell_path.h"

#include "zel/base/ascii.h"

#ifdef __SSE2__
#include "zel/base/atomic.h"
#include <bit>
#include <cpuid.h>
#include <immintrin.h>
#endif

namespace zel::platform {
namespace {

/// What the order of two bytes goes by.
constexpr unsigned char fold(char c) noexcept
{
    return static_cast<unsigned char>(ascii::lower(c));
}

#ifdef __SSE2__
constexpr char case_bit = 'a' - 'A';
// Moved so that `z` is the largest signed byte, the letters are those above a limit.
constexpr char shift = 127 - 'z';
constexpr char limit = shift + 'a' - 1;

/// 16 bytes of the first text, each made 0 where the second has another one.
__m128i keep_equal(char const * first, char const * second) noexcept
{
    __m128i const a = _mm_loadu_si128(reinterpret_cast<__m128i const *>(first));
    __m128i const b = _mm_loadu_si128(reinterpret_cast<__m128i const *>(second));
    __m128i const small = _mm_or_si128(a, _mm_set1_epi8(case_bit));
    __m128i const letter
        = _mm_cmpgt_epi8(_mm_add_epi8(small, _mm_set1_epi8(shift)), _mm_set1_epi8(limit));
    __m128i const ignored = _mm_and_si128(letter, _mm_set1_epi8(case_bit));
    __m128i const difference = _mm_andnot_si128(ignored, _mm_xor_si128(a, b));
    return _mm_and_si128(a, _mm_cmpeq_epi8(difference, _mm_setzero_si128()));
}

/// One bit for each byte that is 0.
unsigned int zeros(__m128i bytes) noexcept
{
    return static_cast<unsigned int>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_setzero_si128())));
}

/// The first byte that differs or ends both texts, each in an array of `max_path` bytes.
inline unsigned int find_end_or_difference(char const * first, char const * second) noexcept
{
    constexpr unsigned int size = sizeof(__m128i);
    unsigned int i = 0;
    for (; i + 2 * size <= max_path; i += 2 * size) {
        __m128i const low = keep_equal(first + i, second + i);
        __m128i const high = keep_equal(first + i + size, second + i + size);
        if (zeros(_mm_min_epu8(low, high)) != 0) [[unlikely]] {
            return i
                + static_cast<unsigned int>(std::countr_zero(zeros(low) | zeros(high) << size));
        }
    }
    i = max_path - size;
    return i
        + static_cast<unsigned int>(std::countr_zero(zeros(keep_equal(first + i, second + i))));
}

/// At a difference the bytes differ in more than their case, at the end in nothing.
bool equal_by_16(char const * first, char const * second) noexcept
{
    unsigned int const at = find_end_or_difference(first, second);
    return first[at] == second[at];
}

/// The same with registers of twice the size.
[[gnu::target("avx2")]] bool equal_by_32(char const * first, char const * second) noexcept
{
    constexpr unsigned int size = sizeof(__m256i);
    constexpr unsigned int last = max_path - size; // overlaps what is known to be equal
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
            return (stop & (0 - stop) & same) != 0; // of the first byte that stops
        }
    }
}

// Not __builtin_cpu_supports: it brings a function of the compiler's run-time along that runs when
// the library is loaded.
[[gnu::cold]] bool has_avx2() noexcept
{
    unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0 || (ecx & bit_OSXSAVE) == 0
        || __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0 || (ebx & bit_AVX2) == 0) {
        return false;
    }
    unsigned int saved = 0;
    __asm__("xgetbv" : "=a"(saved), "=d"(edx) : "c"(0));
    constexpr unsigned int both_halves = 6; // of the registers, over a switch of threads
    return (saved & both_halves) == both_halves;
}

using equality = bool (*)(char const *, char const *) noexcept;

bool find_fastest(char const * first, char const * second) noexcept;

constinit atomic<equality> equal_by_fastest = find_fastest;

bool find_fastest(char const * first, char const * second) noexcept
{
    equality const best = has_avx2() ? equal_by_32 : equal_by_16;
    equal_by_fastest.store(best, std::memory_order_relaxed);
    return best(first, second);
}
#else
inline unsigned int find_end_or_difference(char const * first, char const * second) noexcept
{
    unsigned int i = 0;
    while (first[i] != '\0' && ascii::lower(first[i]) == ascii::lower(second[i])) {
        ++i;
    }
    return i;
}
#endif

} // namespace

int path_compare(char const * first, char const * second) noexcept
{
    unsigned int const at = find_end_or_difference(first, second);
    return fold(first[at]) - fold(second[at]);
}

bool path_equal(char const * first, char const * second) noexcept
{
#ifdef __SSE2__
    return equal_by_fastest.load(std::memory_order_relaxed)(first, second);
#else
    unsigned int const at = find_end_or_difference(first, second);
    return first[at] == second[at];
#endif
}

} // namespace zel::platform
