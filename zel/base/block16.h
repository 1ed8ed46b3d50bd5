// SPDX-License-Identifier: MIT
#pragma once

/// `zel::block16`: 16 bytes in one operation, in the form that suits the processor. All forms have
/// the operations of `block16_portable`. To add a form, add a header beside those two and a branch
/// here; no other neutral file but full_barrier.h tests for the processor.
/// \code
///     std::uint32_t const hits = equal(block16::load(text), block16::filled('\n')).sign_bits();
/// \endcode
#if defined(__x86_64__)
#include "zel/base/block16_x86_64.h"
namespace zel {
using block16 = block16_x86_64;
} // namespace zel
#elif defined(__aarch64__) && !defined(__AARCH64EB__)
#include "zel/base/block16_aarch64.h"
namespace zel {
using block16 = block16_aarch64;
} // namespace zel
#else
#include "zel/base/block16_portable.h"
namespace zel {
using block16 = block16_portable;
} // namespace zel
#endif
