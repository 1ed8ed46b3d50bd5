// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>

namespace zel::platform {

/// Repeats a call of the host as long as a signal interrupts it.
/// \param call  returns -1 with `errno` on failure. Not for `close`: an interrupted `close` has
///              closed the descriptor nevertheless.
template <typename Call> auto retried(Call && call) noexcept
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace zel::platform
