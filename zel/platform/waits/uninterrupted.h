// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// While one lives, its thread is neither suspended nor terminated: that waits for the end of the
/// outermost one. Every lock of the library is held inside one, and briefly.
class uninterrupted {
public:
    uninterrupted() noexcept;
    ~uninterrupted();
    uninterrupted(uninterrupted const &) = delete;
    uninterrupted & operator=(uninterrupted const &) = delete;
};

/// Whether somebody wants to suspend or terminate the calling thread, which is inside
/// `uninterrupted` once.
bool told_to_stop() noexcept;
/// Stops here if told to, and returns after the resume.
void stop_if_told() noexcept;

} // namespace zel::platform
