// SPDX-License-Identifier: MIT
#pragma once

#include <sys/auxv.h>

namespace zel {

/// What this processor has beyond the least of its kind, as the host tells it.
struct processor_features {
    bool crc32; ///< instructions for CRC-32
    bool pmull; ///< multiplication of polynomials with 64 coefficients
};

[[gnu::cold]] inline processor_features find_processor_features() noexcept
{
    auto const features = ::getauxval(AT_HWCAP);
    return {(features & HWCAP_CRC32) != 0, (features & HWCAP_PMULL) != 0};
}

} // namespace zel
