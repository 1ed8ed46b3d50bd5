// SPDX-License-Identifier: MIT
#include "zel/base/load_word.h"
#include "zel/base/processor_features_aarch64.h"
#include "zel/text/crc32_folding.h"
#include "zel/text/crc32_kernels.h"
#include <arm_neon.h>

#include <arm_acle.h>

namespace zel::crc32_kernels {
namespace {

// All below take the checksum with its bits inverted and return it so.

#define ZEL_COUNTS [[gnu::target("arch=armv8-a+crc"), gnu::always_inline]] inline
#define ZEL_FOLDS [[gnu::target("arch=armv8-a+crypto+crc"), gnu::always_inline]] inline

ZEL_COUNTS std::uint32_t count(std::uint32_t crc, unsigned char const * data, std::size_t length)
{
    for (; length >= 8; data += 8, length -= 8) {
        crc = __crc32d(crc, load_word<std::uint64_t>(data));
    }
    if ((length & 4) != 0) {
        crc = __crc32w(crc, load_word<std::uint32_t>(data));
        data += 4;
    }
    if ((length & 2) != 0) {
        crc = __crc32h(crc, load_word<std::uint16_t>(data));
        data += 2;
    }
    return (length & 1) != 0 ? __crc32b(crc, *data) : crc;
}

ZEL_FOLDS uint64x2_t product(std::uint64_t a, std::int64_t b)
{
    return vreinterpretq_u64_p128(vmull_p64(a, static_cast<poly64_t>(b)));
}

template <unsigned distance> ZEL_FOLDS uint64x2_t moved_onto(uint64x2_t block, uint64x2_t other)
{
    using namespace crc32_folding;
    return veorq_u64(veorq_u64(product(vgetq_lane_u64(block, 0), low_factor(distance)),
                               product(vgetq_lane_u64(block, 1), high_factor(distance))),
                     other);
}

ZEL_FOLDS uint64x2_t load(unsigned char const * data)
{
    return vreinterpretq_u64_u8(vld1q_u8(data));
}

ZEL_FOLDS std::uint32_t fold(std::uint32_t crc, unsigned char const * data, std::size_t length)
{
    // Below this the instructions for CRC-32 alone are done before the blocks have been moved.
    if (length < 128) {
        return count(crc, data, length);
    }
    uint64x2_t a = veorq_u64(load(data), vcombine_u64(vcreate_u64(crc), vcreate_u64(0)));
    uint64x2_t b = load(data + 16);
    uint64x2_t c = load(data + 32);
    uint64x2_t d = load(data + 48);
    for (data += 64, length -= 64; length >= 64; data += 64, length -= 64) {
        a = moved_onto<512>(a, load(data));
        b = moved_onto<512>(b, load(data + 16));
        c = moved_onto<512>(c, load(data + 32));
        d = moved_onto<512>(d, load(data + 48));
    }
    d = moved_onto<384>(a, moved_onto<256>(b, moved_onto<128>(c, d)));
    // The block that is left stands for all before it, behind a checksum of nothing.
    crc = __crc32d(__crc32d(0, vgetq_lane_u64(d, 0)), vgetq_lane_u64(d, 1));
    return count(crc, data, length);
}

[[gnu::target("arch=armv8-a+crc")]] std::uint32_t
by_instructions(std::uint32_t crc, unsigned char const * data, std::size_t length) noexcept
{
    return ~count(~crc, data, length);
}

[[gnu::target("arch=armv8-a+crypto+crc")]] std::uint32_t
by_folding_128(std::uint32_t crc, unsigned char const * data, std::size_t length) noexcept
{
    return ~fold(~crc, data, length);
}

} // namespace

std::span<choice const> of_processor() noexcept
{
    static constexpr choice all[] = {
        {"folding_128", by_folding_128,
         []() noexcept {
             processor_features const has = find_processor_features();
             return has.pmull && has.crc32;
         }},
        {"instructions", by_instructions,
         []() noexcept { return find_processor_features().crc32; }},
    };
    return all;
}

} // namespace zel::crc32_kernels
