// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/objects/mutex_word.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/handles.h"
#include "zel/platform/waits/processor_pause.h"
#include "zel/platform/waits/uninterrupted.h"
#include <algorithm>
#include <cstdint>

/// How a thread waits for a mutex: one algorithm for mutexes of one process and for shared ones.
///
/// Invariants:
/// - No thread sleeps unless `waiters_flag` is set. A thread that has slept takes the mutex with
///   the flag set, because others may still sleep. So as long as a thread sleeps, an owner that
///   releases the mutex finds the flag, or a thread is awake that will set it again.
/// - Every change that takes the mutex acquires, and every one by which its owner makes it free
///   releases. The changes between them are exchanges too, so they do not break that pair. The
///   other words are relaxed: only the owner uses them, or they are hints.
/// - One release wakes one thread. A woken thread takes the mutex, or sets the flag and sleeps
///   again, or is told to stop and wakes the next one.
/// - A thread that has not slept may take a free mutex ahead of the sleepers; this gives the best
///   throughput. A thread that was woken in vain and has waited for `kept_out_after` sets
///   `kept_out`. The next release then leaves the flag in the free word, so that the fast path
///   fails, and a thread on the slow path waits once for `stand_back`: the sleepers come first. No
///   other step depends on `kept_out`: if the thread that set it dies, the next thread loses one
///   such delay.
/// - A sleeper checks from time to time whether the owner still exists. The kernel does not report
///   the end of a thread that left by the bare system call, or whose exec the kernel attributed to
///   another thread.
namespace zel::platform {

/// \name In nanoseconds
/// @{
constexpr std::int64_t kept_out_after = 1'000'000;
constexpr std::int64_t stand_back = 2'000'000;
constexpr std::int64_t first_owner_check = 20'000'000; // doubled after each check
constexpr std::int64_t longest_owner_check = 1'000'000'000;
/// @}

/// Waits for a mutex that the caller does not own. The caller is inside exactly one
/// `uninterrupted`. This is where a wait for a mutex times out.
///
/// A `Mutex` has:
///
///     state, kept_out       the words
///     is_shared             true if the state is in memory that processes share, or the kernel
///                           wakes its sleepers
///     take(state, flags)    makes the caller the owner in one step; false when the state has
///                           changed, then `state` is the new one
///     before_sleep(state)   the state to be stored before a sleep: with the flag set
///     is_gone(state)        true if the owner does not exist any more
///
/// \param until  nanoseconds of the monotonic clock; negative for no limit, 0 only tests.
/// \returns 0, 128, 258 or `wait_stopped`.
template <typename Mutex>
std::uint32_t wait_for_owner(Mutex const & mutex, std::int64_t until) noexcept
{
    std::uint64_t now = mutex.state.load(std::memory_order_acquire);
    for (int i = 0; until != 0 && has_owner(now) && i < looks_before_sleep; ++i) {
        processor_pause();
        now = mutex.state.load(std::memory_order_relaxed);
    }
    std::int64_t began = 0; // when the first sleep began
    std::int64_t owner_check = first_owner_check;
    std::uint32_t slept = 0; // `waiters_flag` once this thread has slept
    std::uint32_t slept_on = 0; // the word, if the last sleep timed out
    for (;;) {
        std::uint32_t const seen = word_of(now);
        bool const is_free = !has_owner(now);
        bool const comes_first = until == 0 || slept != 0 || (seen & waiters_flag) == 0
            || mutex.kept_out.load(std::memory_order_relaxed) == 0;
        if (is_free && comes_first) {
            if (mutex.take(now, (seen & waiters_flag) | slept)) {
                if (slept != 0) {
                    mutex.kept_out.store(0, std::memory_order_relaxed);
                }
                return (seen & owner_died) != 0 ? wait_abandoned : wait_object_0;
            }
            continue;
        }
        if (until == 0) {
            return wait_timeout;
        }
        // A thread that has only checked the owner goes on sleeping as before.
        bool const sleeps_on = slept != 0 && word_of(now) == slept_on && !is_free;
        std::uint64_t const flagged = sleeps_on ? now : mutex.before_sleep(now);
        if (flagged != now
            && !mutex.state.compare_exchange_weak(now, flagged, std::memory_order_acquire,
                                                  std::memory_order_acquire)) {
            continue;
        }
        std::int64_t const moment = monotonic_now();
        if (slept == 0) {
            began = moment;
        } else if (!is_free && !sleeps_on && moment - began > kept_out_after) {
            mutex.kept_out.store(1, std::memory_order_relaxed);
        }
        std::int64_t const look = moment + (is_free ? stand_back : owner_check);
        std::int64_t const end = until < 0 ? look : std::min(look, until);
        wake_reason const reason
            = wait_interruptibly(low_word(mutex.state), word_of(flagged), end, mutex.is_shared);
        slept = waiters_flag;
        slept_on = reason == wake_reason::timed_out ? word_of(flagged) : 0;
        if (told_to_stop()) {
            if (reason == wake_reason::woken) {
                wake_address(low_word(mutex.state), 1, mutex.is_shared);
            }
            return wait_stopped;
        }
        now = mutex.state.load(std::memory_order_acquire);
        if (reason == wake_reason::timed_out && end == until) {
            return wait_timeout;
        }
        if (slept_on == word_of(now) && !is_free) {
            owner_check = std::min(2 * owner_check, longest_owner_check);
            if (mutex.is_gone(now)) {
                mutex.state.compare_exchange_strong(now, with_word(now, waiters_flag | owner_died),
                                                    std::memory_order_acquire);
                now = mutex.state.load(std::memory_order_acquire);
            }
        }
    }
}

} // namespace zel::platform
