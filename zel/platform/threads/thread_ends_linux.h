// SPDX-License-Identifier: MIT
#pragma once

#include "zel/platform/threads/thread_record_linux.h"
#include "zel/platform/waits/address_wait.h"
#include <cstdint>

/// How the end of a thread is detected and reported.
///
/// A thread that has run all of its code is `leaving`: the host still has to clean up after it,
/// which a destructor of another library's key may delay for long. A thread that asks for its end
/// checks whether the host has finished, and then joins the thread. Of several waiters, one at a
/// time sleeps on the host's own word. A terminated thread pushes its record on a lock-free reap
/// list, because there may be no waiter; the next waiter, start or close reaps it.
namespace zel::platform {

/// Finds the word that the host clears at a thread's end. Call it before the first thread starts.
void prepare_ends() noexcept;

/// Runs on a thread after its body: calls its teardown, and then makes further stops impossible.
void end_own_thread(handle_slot & slot) noexcept;

/// Runs on a thread that terminates, as the last step before the system call. Takes no lock and
/// allocates nothing.
void hand_to_reaper(handle_slot & slot) noexcept;

/// In the child after a fork.
void forget_terminated_threads() noexcept;

/// Advances the thread's end as far as possible without waiting.
/// \returns the state of the end.
std::uint32_t look_at_end(thread_record & record) noexcept;

/// Sleeps until the end has left the state `end`; like `wait_interruptibly`, it may return earlier.
wake_reason wait_for_end(thread_record & record, std::uint32_t end, std::int64_t until) noexcept;

/// \returns true if the thread has run all of its code.
inline bool has_run(thread_record const & record) noexcept
{
    return record.end.load(std::memory_order_acquire) != not_ended;
}

} // namespace zel::platform
