// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include <cstdint>

namespace zel {

/// The CRC-32 of ISO 3309 and IEEE 802.3, which zip, gzip and PNG use too.
///
/// It detects accidental changes, not forgery. Any number of threads may call it, also for the
/// first time.
/// \code
///     int const sum = zel::Crc32::stringCrc32(block.data(), static_cast<int>(block.size()));
/// \endcode
class ZEL_API Crc32 {
public:
    /// The checksum of `length` bytes. The 32-bit pattern is returned as a signed number: the
    /// checksum 0xCBF43926 of "123456789" is returned as -873187034.
    /// \param length  in bytes; for 0 or less the result is 0 and `data` is not read.
    static int stringCrc32(unsigned char const * data, int length) noexcept;

    ~Crc32();
    /// There is nothing to assign.
    Crc32 & operator=(Crc32 const & other) noexcept;

protected:
    Crc32() noexcept;

private:
    // One step: adds one byte to the checksum so far, whose bits are all inverted.
    void CalcCrc32(unsigned char byte, int & crc) const noexcept;

    std::uint32_t const * table_; // 256 entries, the same for all objects
};

} // namespace zel
