// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace zel::platform {

/// 128 bits in the platform's layout: three numbers in the host's byte order, then eight bytes.
struct guid {
    std::uint32_t data1;
    std::uint16_t data2;
    std::uint16_t data3;
    std::uint8_t data4[8];
};

/// Makes a random identifier, version 4 of RFC 4122, from the random source of the host's kernel.
///
/// All identifiers differ, across threads and processes, including forked children. The kernel is
/// asked for the bytes of 32 identifiers of a thread at a time, so most calls make no system call.
/// Copies of a virtual machine that start from one snapshot may repeat identifiers that a thread
/// had fetched but not used, at most 31. Must not be called from a signal handler.
/// \returns false, with `id` unchanged, when the host provides no random bytes.
bool co_create_guid(guid & id) noexcept;

} // namespace zel::platform
