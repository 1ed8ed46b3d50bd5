// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// While an object of this class exists, its thread is neither suspended nor terminated: requests
/// wait for the end of the outermost one. Every lock of the library is held inside one, for a short
/// time.
class uninterrupted {
public:
    uninterrupted() noexcept;
    ~uninterrupted();
    uninterrupted(uninterrupted const &) = delete;
    uninterrupted & operator=(uninterrupted const &) = delete;
};

/// True if another thread wants to suspend or terminate the calling thread. The calling thread is
/// inside exactly one `uninterrupted`.
bool told_to_stop() noexcept;
/// Stops here if requested, and returns after the resume.
void stop_if_told() noexcept;

} // namespace zel::platform
