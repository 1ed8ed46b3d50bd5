// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace zel::platform {

/// 128 bits as the platform lays them out: the numbers as the host stores numbers, then bytes.
struct guid {
    std::uint32_t data1;
    std::uint16_t data2;
    std::uint16_t data3;
    std::uint8_t data4[8];
};

/// Makes a random identifier, version 4 of RFC 4122, from the random source of the host's kernel.
///
/// No two are alike, in whichever threads and processes they are made, those that `fork` makes
/// included. The bytes come from the kernel for 32 identifiers of a thread at a time, so most calls
/// cost no system call. Copies of a virtual machine that start from one snapshot may repeat the up
/// to 31 that a thread had left. Not to be called by a signal handler.
/// \returns false, with `id` unchanged, when the host gives no random bytes.
bool co_create_guid(guid & id) noexcept;

} // namespace zel::platform
