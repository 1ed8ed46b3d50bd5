// SPDX-License-Identifier: MIT
#include "zel/values/uid.h"

#include "zel/platform/host/guid.h"
#include <cstring>
#include <emmintrin.h>
#include <ostream>

namespace zel {
namespace {

static_assert(sizeof(platform::guid) == sizeof(uid) && alignof(platform::guid) == alignof(uid));

// 16 hexadecimal digits, the `high` and the `low` halves of bytes in turn. `letters` holds what
// takes a digit above 9 from behind '9' to its letter.
__m128i digits(__m128i halves, __m128i letters)
{
    __m128i const above_9 = _mm_cmpgt_epi8(halves, _mm_set1_epi8(9));
    return _mm_add_epi8(_mm_add_epi8(halves, _mm_set1_epi8('0')), _mm_and_si128(above_9, letters));
}

} // namespace

void uid::create() noexcept
{
    platform::guid fresh{};
    platform::co_create_guid(fresh);
    *this = std::bit_cast<uid>(fresh);
}

string uid::to_string() const
{
    constexpr char capital = 'A' - '9' - 1;
    constexpr char small = 'a' - '9' - 1;
    // In the order in which the bytes are printed; the numbers begin with their highest one.
    std::uint64_t const numbers = std::uint64_t{__builtin_bswap32(data1_)}
        | std::uint64_t{__builtin_bswap16(data2_)} << 32
        | std::uint64_t{__builtin_bswap16(data3_)} << 48;
    __m128i const bytes
        = _mm_set_epi64x(std::bit_cast<std::int64_t>(data4_), static_cast<std::int64_t>(numbers));
    __m128i const half = _mm_set1_epi8(0x0F);
    __m128i const low = _mm_and_si128(bytes, half);
    __m128i const high = _mm_and_si128(_mm_srli_epi16(bytes, 4), half);

    alignas(16) char hex[32];
    _mm_store_si128(
        reinterpret_cast<__m128i *>(hex),
        digits(_mm_unpacklo_epi8(high, low),
               _mm_set_epi8(small, small, small, small, capital, capital, capital, capital, capital,
                            capital, capital, capital, capital, capital, capital, capital)));
    _mm_store_si128(reinterpret_cast<__m128i *>(hex + 16),
                    digits(_mm_unpackhi_epi8(high, low), _mm_set1_epi8(capital)));

    char text[] = "{........-....-....-....-............}";
    std::memcpy(text + 1, hex, 8);
    std::memcpy(text + 10, hex + 8, 4);
    std::memcpy(text + 15, hex + 12, 4);
    std::memcpy(text + 20, hex + 16, 4);
    std::memcpy(text + 25, hex + 20, 12);
    return string(text, sizeof text - 1);
}

std::ostream & operator<<(std::ostream & stream, uid const & value)
{
    return stream << value.to_string();
}

} // namespace zel
