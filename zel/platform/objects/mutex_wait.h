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

/// How a thread waits for a mutex, of this process or shared: one algorithm for both.
///
/// What each step keeps:
/// - Nobody sleeps unless the flag is set; whoever has slept takes the mutex with the flag, for it
///   may not be the only one. So an owner that gives the mutex back finds the flag as long as
///   anybody sleeps, or somebody is awake who will set it again.
/// - One release wakes one. Whoever was woken takes the mutex, or sets the flag and sleeps again, or
///   is told to stop and wakes the next.
/// - A thread that has not slept may take a free mutex in front of those that sleep; that is quicker
///   for all. One that was woken in vain and has waited for `kept_out_after` says so in `kept_out`.
///   The next release then leaves the flag in the free word, so that nobody takes it by the quick
///   way, and who comes by the slow way stands back for `stand_back` once: those that were asleep
///   come first. No step depends on it: whoever left `kept_out` set and died costs the next that
///   one delay.
/// - Who sleeps looks from time to time whether the owner is still there, for ends that nobody
///   tells: of a thread that left by the bare system call, or whose exec the kernel counted for
///   another thread.
namespace zel::platform {

/// \name In nanoseconds
/// @{
constexpr std::int64_t kept_out_after = 1'000'000;
constexpr std::int64_t stand_back = 2'000'000;
constexpr std::int64_t first_look_after_owner = 20'000'000; // the time is doubled after each look
constexpr std::int64_t last_look_after_owner = 1'000'000'000;
/// @}

/// Waits for a mutex that is not the caller's, who is inside `uninterrupted` once.
///
/// A `Mutex` has:
///
///     state, kept_out       the words
///     is_shared             whether the state lies in memory that processes share, or is woken by
///                           the kernel
///     take(state, flags)    one step from a state without an owner to the caller's; false when the
///                           state has changed, then `state` is new
///     before_sleep(state)   the state with the flag, and whatever else a sleep leaves behind
///     is_gone(state)        whether the owner is not there any more
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
    std::int64_t began = 0; // the first sleep
    std::int64_t look_after = first_look_after_owner;
    std::uint32_t slept = 0; // `waiters_flag` afterwards
    std::uint32_t slept_on = 0; // the word, when the last sleep ended by time
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
        // Who has only looked after the owner sleeps on as before.
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
        std::int64_t const look = moment + (is_free ? stand_back : look_after);
        std::int64_t const end = until < 0 ? look : std::min(look, until);
        wake_reason const reason
            = wait_interruptibly(low_word(mutex.state), word_of(flagged), end, mutex.is_shared);
        slept = waiters_flag;
        slept_on = reason == wake_reason::late ? word_of(flagged) : 0;
        if (told_to_stop()) {
            if (reason == wake_reason::woken) {
                wake_address(low_word(mutex.state), 1, mutex.is_shared);
            }
            return wait_stopped;
        }
        now = mutex.state.load(std::memory_order_acquire);
        if (reason == wake_reason::late && end == until) {
            return wait_timeout;
        }
        if (slept_on == word_of(now) && !is_free) {
            look_after = std::min(2 * look_after, last_look_after_owner);
            if (mutex.is_gone(now)) {
                mutex.state.compare_exchange_strong(now, with_word(now, waiters_flag | owner_died),
                                                    std::memory_order_acquire);
                now = mutex.state.load(std::memory_order_acquire);
            }
        }
    }
}

} // namespace zel::platform
