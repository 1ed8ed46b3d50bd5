// SPDX-License-Identifier: MIT
#include "zel/platform/paths/path_compare.h"

#include "zel/base/ascii.h"
#include "zel/platform/paths/path_blocks.h"

namespace zel::platform {
namespace {

/// The key by which two bytes are ordered.
constexpr unsigned char fold(char c) noexcept
{
    return static_cast<unsigned char>(ascii::lower(c));
}

} // namespace

int path_compare(char const * first, char const * second) noexcept
{
    unsigned int const at = path_blocks::find_end_or_difference(first, second);
    return fold(first[at]) - fold(second[at]);
}

} // namespace zel::platform
