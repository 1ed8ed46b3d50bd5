// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include <cstdint>

namespace zel {

/// The CRC-32 of ISO 3309 and IEEE 802.3, which zip, gzip and PNG use too.
///
/// Detects accidents, not forgery. Any number of threads may call it, the first time too.
/// \code
///     int const sum = zel::Crc32::stringCrc32(block.data(), static_cast<int>(block.size()));
/// \endcode
class ZEL_API Crc32 {
public:
    /// The checksum of `length` bytes, as the 32-bit pattern that a signed number has: the sum
    /// 0xCBF43926 of "123456789" comes as -873187034.
    /// \param length  in bytes; 0 or less gives 0, and `data` is not read.
    static int stringCrc32(unsigned char const * data, int length) noexcept;

    ~Crc32();
    /// There is nothing to assign.
    Crc32 & operator=(Crc32 const & other) noexcept;

protected:
    Crc32() noexcept;

private:
    // One step: the checksum so far, all its bits inverted, takes in one more byte.
    void CalcCrc32(unsigned char byte, int & crc) const noexcept;

    std::uint32_t const * table_; // 256 entries, the same for all objects
};

} // namespace zel
