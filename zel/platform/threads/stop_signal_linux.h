// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/threads/thread_record_linux.h"
#include <cstdint>

namespace zel::platform {

/// The number of the signal that stops threads.
int stop_signal() noexcept;

/// Sends it to a thread of this process. The thread ignores it unless a stop is requested.
/// \returns false when the host can't queue another signal.
bool send_stop_signal(std::uint32_t id) noexcept;

/// Unblocks the stop signal on the calling thread, whatever mask it has inherited.
void admit_stop_signal() noexcept;

/// One request to stop another thread, as long as it is waited for.
class stop_request {
public:
    explicit stop_request(thread_record & record) noexcept
        : record_(record)
    {
    }

    void send() noexcept;

    /// Sleeps until `record.control` differs from `now`, or the calling thread itself is told to
    /// stop; checks the thread from time to time.
    /// \returns false when the thread cannot be stopped: the host can't queue the signal, or five
    ///          checks in a row found the thread running or sleeping with the signal blocked. A
    ///          postponement between two checks shows that it takes the signal.
    bool wait(std::uint32_t now) noexcept;

private:
    bool is_refused() noexcept;

    thread_record & record_;
    int unsent_ = 0;
    int blocked_ = 0; // checks in a row that found the signal blocked
    std::uint32_t postponed_ = 0; // the count at the last check
    int asleep_ = 0; // of these, those that found the thread asleep
    std::int64_t time_at_first_ = 0; // the thread's processor time at the first of these checks
};

} // namespace zel::platform
