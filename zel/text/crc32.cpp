// SPDX-License-Identifier: MIT
#include "zel/text/crc32.h"

#include "zel/text/crc32_kernels.h"

namespace zel {

Crc32::Crc32() noexcept
    : table_(crc32_kernels::table[0].data())
{
}

Crc32::~Crc32() = default;

Crc32 & Crc32::operator=(Crc32 const & other) noexcept = default;

void Crc32::CalcCrc32(unsigned char byte, int & crc) const noexcept
{
    auto const bits = static_cast<std::uint32_t>(crc);
    crc = static_cast<int>(bits >> 8 ^ table_[(bits & 0xFF) ^ byte]);
}

int Crc32::stringCrc32(unsigned char const * data, int length) noexcept
{
    if (length <= 0) {
        return 0;
    }
    if (length < 4) { // too short for any step of more than a byte
        Crc32 const steps;
        int crc = -1;
        for (int i = 0; i < length; ++i) {
            steps.CalcCrc32(data[i], crc);
        }
        return ~crc;
    }
    auto const update = crc32_kernels::by_fastest.load(std::memory_order_relaxed);
    return static_cast<int>(update(0, data, static_cast<std::size_t>(length)));
}

} // namespace zel
