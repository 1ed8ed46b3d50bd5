// SPDX-License-Identifier: MIT
#include "zel/values/uid.h"

#include "zel/base/block16.h"
#include "zel/platform/host/guid.h"
#include <cstring>
#include <ostream>

namespace zel {
namespace {

static_assert(sizeof(platform::guid) == sizeof(uid) && alignof(platform::guid) == alignof(uid));

// Added to a digit above 9, which is written as '9' plus its excess, this gives its letter.
constexpr char capital = 'A' - '9' - 1;
constexpr char small = 'a' - '9' - 1;

// The hexadecimal digits of 16 values from 0 to 15.
block16 digits(block16 halves, block16 letters)
{
    auto const above_9 = greater(halves, block16::filled(9));
    return halves + block16::filled('0') + (above_9 & letters);
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
    // The bytes in printing order: the numbers begin with their highest byte.
    std::uint64_t const numbers = std::uint64_t{__builtin_bswap32(data1_)}
        | std::uint64_t{__builtin_bswap16(data2_)} << 32
        | std::uint64_t{__builtin_bswap16(data3_)} << 48;
    auto const bytes = block16::of_words(numbers, std::bit_cast<std::uint64_t>(data4_));
    block16 const high = bytes.high_nibbles();
    block16 const low = bytes.low_nibbles();

    // Only the third group is printed in small letters.
    static constexpr char letters[16]
        = {capital, capital, capital, capital, capital, capital, capital, capital,
           capital, capital, capital, capital, small,   small,   small,   small};
    char hex[32];
    digits(interleave_first(high, low), block16::load(letters)).store(hex);
    digits(interleave_last(high, low), block16::filled(capital)).store(hex + 16);

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
