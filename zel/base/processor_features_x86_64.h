// SPDX-License-Identifier: MIT
#pragma once

#include <cpuid.h>

namespace zel {

/// Features that this processor has beyond plain x86-64 and that the host supports. The host has to
/// save the wider registers when it switches threads.
struct processor_features {
    bool folds_128; ///< PCLMULQDQ and SSE4.1
    bool folds_512; ///< VPCLMULQDQ and AVX-512F beside those
    bool avx2;
    bool avx512_bytes; ///< AVX-512BW: 64 bytes with a mask bit for each
};

// Not __builtin_cpu_supports: it links a function of the compiler's run-time library that runs when
// the library is loaded.
[[gnu::cold]] inline processor_features find_processor_features() noexcept
{
    processor_features found{};
    unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) == 0) {
        return found;
    }
    constexpr unsigned int for_folding = bit_PCLMUL | bit_SSE4_1;
    found.folds_128 = (ecx & for_folding) == for_folding;
    if ((ecx & bit_OSXSAVE) == 0 || __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) == 0) {
        return found;
    }
    unsigned int saved = 0;
    __asm__("xgetbv" : "=a"(saved), "=d"(edx) : "c"(0));
    constexpr unsigned int all_of_ymm = 0x06; // the XMM half and the other one
    constexpr unsigned int all_of_zmm = 0xE6; // XMM, YMM, masks and both parts of ZMM
    found.avx2 = (ebx & bit_AVX2) != 0 && (saved & all_of_ymm) == all_of_ymm;
    bool const has_zmm = (saved & all_of_zmm) == all_of_zmm;
    found.avx512_bytes = (ebx & bit_AVX512F) != 0 && (ebx & bit_AVX512BW) != 0 && has_zmm;
    found.folds_512
        = found.folds_128 && (ebx & bit_AVX512F) != 0 && (ecx & bit_VPCLMULQDQ) != 0 && has_zmm;
    return found;
}

} // namespace zel
