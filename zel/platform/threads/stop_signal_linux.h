// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/threads/thread_record_linux.h"
#include <cstdint>

namespace zel::platform {

/// The number of the signal that stops threads.
int stop_signal() noexcept;

/// Sends it to a thread of this process, which ignores it unless it is told to stop.
/// \returns false when the host has no room for another signal.
bool send_stop_signal(std::uint32_t id) noexcept;

/// Lets the stop signal in, whatever the mask that the calling thread has inherited.
void admit_stop_signal() noexcept;

/// One wish to stop another thread, as long as it is waited for.
class stop_request {
public:
    explicit stop_request(thread_record & record) noexcept
        : record_(record)
    {
    }

    void send() noexcept;

    /// Sleeps until `record.control` is not `now` any more, or the calling thread is told to stop
    /// itself; looks after the thread now and then.
    /// \returns false when the thread cannot be stopped: it runs or sleeps with the signal blocked,
    ///          seen at five looks in a row, or the host takes no signal for it.
    bool wait(std::uint32_t now) noexcept;

private:
    bool is_refused() noexcept;

    thread_record & record_;
    int unsent_ = 0;
    int blocked_ = 0; // looks in a row that found the signal blocked
    int asleep_ = 0; // of these, those that found the thread asleep
    std::int64_t time_at_first_ = 0; // the thread's processor time at the first of these
};

} // namespace zel::platform
