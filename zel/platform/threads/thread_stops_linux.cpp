// SPDX-License-Identifier: MIT
//
// The side of the threads that suspend, resume and terminate others; stop_handler_linux.cpp is the
// side of the thread that is stopped.

#include "zel/platform/last_error.h"
#include "zel/platform/threads/stop_handler_linux.h"
#include "zel/platform/threads/stop_signal_linux.h"
#include "zel/platform/threads/thread_ends_linux.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include <algorithm>
#include <climits>

namespace zel::platform {
namespace {

// Nanoseconds until the signal is sent again to a thread that continues in order to leave the C
// library. The pause is short at first, because most threads leave soon, and then grows, so that
// the signal does not slow the thread down.
constexpr std::int64_t first_pause = 10'000;
constexpr std::int64_t longest_pause = 200'000;

enum class outcome { done, refused, told_to_stop_oneself };

outcome wait_until_parked(thread_record & record, bool signal)
{
    stop_request request(record);
    if (signal) {
        request.send();
    }
    for (;;) {
        std::uint32_t now = record.control.load(std::memory_order_acquire);
        if ((now & (parked | gone | past_stops)) != 0 || (now & suspensions_mask) == 0) {
            return outcome::done; // stopped; or it has ended, or another thread has resumed it
        }
        if (told_to_stop()) {
            return outcome::told_to_stop_oneself;
        }
        if (!request.wait(now)) {
            now = record.control.load(std::memory_order_acquire);
            while ((now & suspensions_mask) != 0
                   && !record.control.compare_exchange_weak(now, now - 1)) { }
            wake_address(record.control, INT_MAX, false);
            return outcome::refused;
        }
    }
}

// Requests the end. Returns false when the thread has ended by itself, or is about to.
bool want_end(thread_record & record, std::uint32_t exit_code, bool is_own)
{
    std::uint32_t const wish = is_own ? end_wanted | end_forced : end_wanted;
    std::uint64_t none = 0;
    record.wanted_code.compare_exchange_strong(none, std::uint64_t{1} << 32 | exit_code);
    std::uint32_t now = record.control.load(std::memory_order_acquire);
    do {
        if ((now & past_stops) != 0) {
            return false;
        }
    } while ((now & wish) != wish && !record.control.compare_exchange_weak(now, now | wish));
    if ((now & parked) != 0) {
        wake_address(record.control, INT_MAX, false);
    }
    return true;
}

// Withdraws the request. Returns false when the thread has ended meanwhile.
bool give_up_end(thread_record & record)
{
    std::uint32_t now = record.control.load(std::memory_order_acquire);
    while ((now & gone) == 0 && !record.control.compare_exchange_weak(now, now & ~end_wanted)) { }
    if ((now & gone) != 0) {
        return false;
    }
    record.wanted_code.store(0, std::memory_order_relaxed);
    wake_address(record.control, INT_MAX, false);
    return true;
}

outcome wait_until_gone(thread_record & record)
{
    stop_request request(record);
    std::uint32_t const at_first = record.control.load(std::memory_order_acquire);
    if ((at_first & parked) == 0) { // a parked thread was woken
        request.send();
    }
    std::uint32_t postponed = at_first / postponement;
    std::int64_t pause = first_pause;
    bool runs_on = false; // it was stopped, and continues only to leave the C library
    for (;;) {
        std::uint32_t const now = record.control.load(std::memory_order_acquire);
        if ((now & gone) != 0) {
            return outcome::done;
        }
        if ((now & end_wanted) == 0) {
            return outcome::refused; // another terminating thread has found the signal blocked
        }
        if (!runs_on && told_to_stop()) {
            return outcome::told_to_stop_oneself;
        }
        if (now / postponement != postponed) {
            runs_on = true;
            postponed = now / postponement;
            wait_on_address(record.control, now, monotonic_now() + pause, false);
            pause = std::min(pause * 2, longest_pause);
            request.send();
        } else if (!request.wait(now) && give_up_end(record)) {
            return outcome::refused;
        }
    }
}

// Waits until the host has cleaned up after a terminated thread. It must not wait while the caller
// is told to stop.
outcome wait_until_cleared_away(thread_record & record)
{
    for (std::uint32_t end = 0; (end = look_at_end(record)) != ended;) {
        if (told_to_stop()) {
            return outcome::told_to_stop_oneself;
        }
        wait_for_end(record, end, -1);
    }
    reap_threads();
    return outcome::done;
}

} // namespace

std::uint32_t suspend_thread(void * handle) noexcept
{
    std::uint32_t before = 0xFFFFFFFF;
    for (bool counted = false;; counted = true) {
        uninterrupted const guard;
        handle_slot * const slot = counted ? pin_thread(handle) : pinned_thread(handle);
        if (slot == nullptr) {
            return before; // the handle was closed meanwhile
        }
        thread_record & record = record_of(*slot);
        if (!counted) {
            std::uint32_t now = record.control.load(std::memory_order_acquire);
            do {
                bool const too_late = (now & (past_stops | end_wanted)) != 0;
                if (too_late || (now & suspensions_mask) == suspensions_mask) {
                    set_last_error(too_late ? error_access_denied : error_signal_refused);
                    release_thread(*slot);
                    return before;
                }
            } while (!record.control.compare_exchange_weak(now, now + 1));
            before = now & suspensions_mask;
        }
        if (slot == this_thread.slot) {
            admit_stop_signal();
            release_thread(*slot);
            return before; // after the resume: the end of `guard` stops
        }
        outcome const result = wait_until_parked(record, !counted && before == 0);
        release_thread(*slot);
        if (result == outcome::done) {
            return before;
        }
        if (result == outcome::refused) {
            set_last_error(error_signal_refused);
            return 0xFFFFFFFF;
        }
        stop_if_told();
    }
}

std::uint32_t resume_thread(void * handle) noexcept
{
    uninterrupted const guard;
    handle_slot * const slot = pinned_thread(handle);
    if (slot == nullptr) {
        return 0xFFFFFFFF;
    }
    atomic<std::uint32_t> & control = record_of(*slot).control;
    std::uint32_t now = control.load(std::memory_order_acquire);
    while ((now & suspensions_mask) != 0 && !control.compare_exchange_weak(now, now - 1)) { }
    std::uint32_t const before = now & suspensions_mask;
    if (before == 1) {
        wake_address(control, INT_MAX, false);
    }
    release_thread(*slot);
    return before;
}

bool terminate_thread(void * handle, std::uint32_t exit_code) noexcept
{
    for (bool asked = false;; asked = true) {
        uninterrupted const guard;
        handle_slot * const slot = asked ? pin_thread(handle) : pinned_thread(handle);
        if (slot == nullptr) {
            return asked; // the handle was closed meanwhile, so the outcome is unknown
        }
        thread_record & record = record_of(*slot);
        bool const is_own = slot == this_thread.slot;
        if (!asked && !want_end(record, exit_code, is_own)) {
            release_thread(*slot);
            return true;
        }
        if (is_own) {
            admit_stop_signal();
            release_thread(*slot);
            return true; // not reached: the destructor of `guard` does not return
        }
        outcome result = wait_until_gone(record);
        if (result == outcome::done) {
            result = wait_until_cleared_away(record);
        }
        release_thread(*slot);
        if (result == outcome::done) {
            return true;
        }
        if (result == outcome::refused) {
            set_last_error(error_signal_refused);
            return false;
        }
        stop_if_told();
    }
}

} // namespace zel::platform
