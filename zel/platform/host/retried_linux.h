// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>

namespace zel::platform {

/// Repeats a call of the host until no signal interrupts it.
/// \param call  returns -1 with `errno` on failure. Not for `close`: it has closed all the same.
template <typename Call> auto retried(Call && call) noexcept
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace zel::platform
