// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/threads/thread_record_linux.h"
#include "zel/platform/waits/address_wait.h"
#include <cstdint>

/// How the end of a thread becomes known.
///
/// A thread that has run all of its code is `leaving`: the host still has to clear it away, which a
/// destructor of somebody else's key may put off for long. Whoever asks looks whether the host is
/// done, and then joins the thread; of those that wait, one at a time sleeps on the host's own word.
/// A terminated thread pushes its record on a lock-free reap list, for a waiter may never come; the
/// next waiter, start or close reaps it.
namespace zel::platform {

/// Finds the host's word that tells of a thread's end. Before the first thread starts.
void prepare_ends() noexcept;

/// The end of a thread's own body, on the thread itself: calls its teardown, then nobody stops it
/// any more.
void end_own_thread(handle_slot & slot) noexcept;

/// For a thread that terminates, on the thread itself: its last step but the system call. Takes no
/// lock and allocates nothing.
void hand_to_reaper(handle_slot & slot) noexcept;

/// In the child after a fork.
void forget_terminated_threads() noexcept;

/// \returns the state of the thread's end, after what the caller can do for it without waiting.
std::uint32_t look_at_end(thread_record & record) noexcept;

/// Sleeps until the end is not in state `end` any more, as far as can be told; like
/// `wait_interruptibly`.
wake_reason wait_for_end(thread_record & record, std::uint32_t end, std::int64_t until) noexcept;

/// \returns whether the thread has run all of its code.
inline bool has_run(thread_record const & record) noexcept
{
    return record.end.load(std::memory_order_acquire) != not_ended;
}

} // namespace zel::platform
