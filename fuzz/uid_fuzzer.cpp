// SPDX-License-Identifier: MIT
// The text of any identifier against printf, and its order against memcmp.
#include "zel/values/uid.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    unsigned char images[2][16]{};
    std::memcpy(images, data, std::min(size, sizeof images));
    zel::uid ids[2];
    std::memcpy(&ids[0], images[0], 16);
    std::memcpy(&ids[1], images[1], 16);

    unsigned char const * const image = images[0];
    std::uint32_t data1 = 0;
    std::uint16_t data2 = 0;
    std::uint16_t data3 = 0;
    std::memcpy(&data1, image, 4);
    std::memcpy(&data2, image + 4, 2);
    std::memcpy(&data3, image + 6, 2);
    char expected[39];
    std::snprintf(expected, sizeof expected, "{%08X-%04X-%04x-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  data1, data2, data3, image[8], image[9], image[10], image[11], image[12],
                  image[13], image[14], image[15]);
    require(ids[0].to_string() == expected);

    std::array<unsigned char, 8> tail{};
    std::copy(image + 8, image + 16, tail.begin());
    require(zel::uid(data1, data2, data3, tail) == ids[0]);

    int const order = std::memcmp(images[0], images[1], 16);
    require((ids[0] < ids[1]) == (order < 0) && (ids[0] > ids[1]) == (order > 0));
    require((ids[0] == ids[1]) == (order == 0) && (ids[0] <= ids[1]) == (order <= 0));
    require(order != 0 || std::hash<zel::uid>()(ids[0]) == std::hash<zel::uid>()(ids[1]));
    return 0;
}
