// SPDX-License-Identifier: MIT
#pragma once

namespace notebook {

/// The numbers of the window's own messages, which begin where those of the platform end.
enum window_message : unsigned int {
    message_progress = 0x0400, ///< wParam: percent of the work that is done
    message_call, ///< another start wants this one in front
};

} // namespace notebook
