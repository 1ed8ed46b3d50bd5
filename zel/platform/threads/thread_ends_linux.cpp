// SPDX-License-Identifier: MIT
#include "zel/platform/threads/thread_ends_linux.h"

#include "zel/platform/last_error.h"
#include "zel/platform/threads/stop_handler_linux.h"
#include "zel/platform/threads/stop_signal_linux.h"
#include "zel/platform/threads/threads.h"
#include <algorithm>
#include <climits>
#include <cstddef>

#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace zel::platform {
namespace {

// Nanoseconds between two checks where the host does not wake a waiter.
constexpr std::int64_t slice = 5'000'000;
constexpr std::int64_t short_slice = 100'000;

// The distance from a thread's handle to the word that the host clears and wakes when the thread
// has completely ended; 0 when it is unknown.
constinit std::ptrdiff_t host_word_distance = 0;

// The reap list of terminated threads. It holds one more than the number of the first slot, that of
// the thread terminated last; `next_free` of each slot leads to the one terminated before it.
constinit atomic<std::uint32_t> reap_list{0};

atomic<std::uint32_t> const & host_word_of(thread_record const & record)
{
    auto const address = static_cast<std::uintptr_t>(record.thread)
        + static_cast<std::uintptr_t>(host_word_distance);
    return *reinterpret_cast<atomic<std::uint32_t> const *>(address);
}

void tell_end(thread_record & record, end_state state)
{
    record.end.store(state, std::memory_order_release);
    wake_address(record.end, INT_MAX, false);
}

// Only the thread that has set the end to `being_reaped` calls this.
std::uint32_t reap_if_gone(thread_record & record)
{
    if (::pthread_tryjoin_np(record.thread, nullptr) != 0) {
        tell_end(record, leaving); // another waiter may try
        return leaving;
    }
    if ((record.control.load(std::memory_order_acquire) & gone) != 0) {
        if (record.teardown.function != nullptr) {
            record.teardown.function(record.teardown.data);
        }
        record.exit_code.store(word_of(record.wanted_code.load(std::memory_order_relaxed)),
                               std::memory_order_relaxed);
    }
    tell_end(record, ended);
    return ended;
}

bool begin_reaping(thread_record & record)
{
    std::uint32_t end = leaving;
    return record.end.compare_exchange_strong(end, being_reaped, std::memory_order_acq_rel);
}

void push_on_reap_list(handle_slot & slot)
{
    std::uint32_t top = reap_list.load(std::memory_order_relaxed);
    do {
        slot.next_free.store(top, std::memory_order_relaxed);
    } while (!reap_list.compare_exchange_weak(top, slot.number + 1, std::memory_order_acq_rel));
}

} // namespace

void prepare_ends() noexcept
{
    std::uint32_t const * word = nullptr;
    if (::prctl(PR_GET_TID_ADDRESS, &word) != 0 || word == nullptr
        || *word != static_cast<std::uint32_t>(::gettid())) {
        return;
    }
    constexpr std::uintptr_t descriptor_size = 8192; // more than the size of the C library's
    std::uintptr_t const distance
        = reinterpret_cast<std::uintptr_t>(word) - static_cast<std::uintptr_t>(::pthread_self());
    if (distance < descriptor_size) {
        host_word_distance = static_cast<std::ptrdiff_t>(distance);
    }
}

void end_own_thread(handle_slot & slot) noexcept
{
    thread_record & record = record_of(slot);
    {
        uninterrupted const guard;
        if (record.teardown.function != nullptr) {
            record.teardown.function(record.teardown.data);
            record.teardown.function = nullptr;
        }
    }
    // After this exchange no thread can stop this one any more. No thread sleeps on `control` then:
    // a thread that suspended this one was woken by the resume.
    std::uint32_t now = record.control.load(std::memory_order_acquire);
    while ((now & stop_mask) != 0 || !record.control.compare_exchange_weak(now, now | past_stops)) {
        if ((now & stop_mask) != 0) {
            admit_stop_signal();
            stop_here();
            now = record.control.load(std::memory_order_acquire);
        }
    }
    this_thread.slot = nullptr;
    this_thread.control = &never_stopped;
    abandon_holds(true);
    tell_end(record, leaving);
    release_thread(slot);
}

void hand_to_reaper(handle_slot & slot) noexcept
{
    thread_record & record = record_of(slot);
    // The record stays until a thread has seen that the host has cleaned up after this one: the
    // reap list takes over the thread's own reference.
    record.end.store(leaving, std::memory_order_release);
    record.control.fetch_or(gone, std::memory_order_acq_rel);
    push_on_reap_list(slot);
    wake_address(record.control, INT_MAX, false);
    wake_address(record.end, INT_MAX, false);
}

void reap_threads() noexcept
{
    if (reap_list.load(std::memory_order_acquire) == 0) {
        return;
    }
    std::uint32_t number = reap_list.exchange(0, std::memory_order_acq_rel);
    while (number != 0) {
        handle_slot & slot = slot_numbered(number - 1);
        number = slot.next_free.load(std::memory_order_relaxed);
        if (look_at_end(record_of(slot)) == ended) {
            release_thread(slot);
        } else {
            push_on_reap_list(slot);
        }
    }
}

void forget_terminated_threads() noexcept { reap_list.store(0, std::memory_order_relaxed); }

std::uint32_t look_at_end(thread_record & record) noexcept
{
    return begin_reaping(record) ? reap_if_gone(record)
                                 : record.end.load(std::memory_order_acquire);
}

wake_reason wait_for_end(thread_record & record, std::uint32_t end, std::int64_t until) noexcept
{
    if (end != leaving) {
        return wait_interruptibly(record.end, end, until, false);
    }
    if (!begin_reaping(record)) {
        return wake_reason::changed;
    }
    wake_reason reason = wake_reason::woken;
    if (host_word_distance != 0) {
        reason = wait_interruptibly(host_word_of(record), record.id.load(std::memory_order_relaxed),
                                    until, true);
    } else {
        std::int64_t const next_look = monotonic_now() + short_slice;
        bool const is_last = until >= 0 && until <= next_look;
        reason = wait_interruptibly(record.end, being_reaped, is_last ? until : next_look, false);
        if (reason == wake_reason::timed_out && !is_last) {
            reason = wake_reason::woken;
        }
    }
    reap_if_gone(record);
    return reason;
}

std::uint32_t wait_for_thread(void * handle, std::int64_t until) noexcept
{
    // The reference is kept from one check to the next, so that a wait outlives the handle. It is
    // released wherever the caller may be terminated.
    for (bool timed_out = until == 0;;) {
        uninterrupted const guard;
        handle_slot * const slot = pinned_thread(handle);
        if (slot == nullptr) {
            return 0xFFFFFFFF;
        }
        thread_record & record = record_of(*slot);
        std::uint32_t end = look_at_end(record);
        while (end != ended && !timed_out && !told_to_stop()) {
            timed_out = wait_for_end(record, end, until) == wake_reason::timed_out;
            end = look_at_end(record);
        }
        release_thread(*slot);
        if (end == ended || timed_out) {
            return end == ended ? 0 : 258;
        }
        stop_if_told();
    }
}

std::uint32_t wait_for_thread_or_change(void * handle, atomic<std::uint32_t> const & word,
                                        std::uint32_t expected, std::uint32_t milliseconds) noexcept
{
    std::int64_t const until = milliseconds == 0 ? 0 : moment_after(milliseconds);
    for (;;) {
        uninterrupted const guard;
        handle_slot * const slot = pinned_thread(handle);
        if (slot == nullptr) {
            return 0xFFFFFFFF;
        }
        thread_record & record = record_of(*slot);
        std::uint32_t const end = look_at_end(record);
        bool const changed = word.load(std::memory_order_acquire) != expected;
        if (end == ended || changed || (until >= 0 && (until == 0 || monotonic_now() >= until))) {
            release_thread(*slot);
            return end == ended ? 0 : changed ? 1 : 258;
        }
        bool const watches_host
            = end == leaving && host_word_distance != 0 && begin_reaping(record);
        bool const waited = watches_host
            ? wait_for_either_interruptibly(host_word_of(record),
                                            record.id.load(std::memory_order_relaxed), true, word,
                                            expected, until)
            : end != leaving
                && wait_for_either_interruptibly(record.end, end, false, word, expected, until);
        if (!waited) {
            // Linux before 5.16: sleep until the word changes, and check for the end from time to
            // time.
            std::int64_t const next_look = monotonic_now() + slice;
            wait_interruptibly(word, expected, until < 0 ? next_look : std::min(next_look, until),
                               false);
        }
        if (watches_host) {
            reap_if_gone(record);
        }
        release_thread(*slot);
        stop_if_told();
    }
}

bool close_thread(void * handle) noexcept
{
    uninterrupted const guard;
    handle_slot * const slot = slot_of(handle);
    std::uint32_t word = 0;
    if (slot == nullptr || kind_of(handle) != handle_kind::thread || !retire(*slot, handle, word)) {
        set_last_error(error_invalid_handle);
        return false;
    }
    release_thread(*slot);
    reap_threads();
    return true;
}

bool get_exit_code_thread(void * handle, std::uint32_t & code) noexcept
{
    uninterrupted const guard;
    handle_slot * const slot = pinned_thread(handle);
    if (slot == nullptr) {
        return false;
    }
    thread_record & record = record_of(*slot);
    code = look_at_end(record) == ended ? record.exit_code.load(std::memory_order_relaxed)
                                        : still_active;
    release_thread(*slot);
    return true;
}

handle_slot * pin_thread(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    bool const is_there
        = slot != nullptr && kind_of(handle) == handle_kind::thread && pin(*slot, handle);
    return is_there ? slot : nullptr;
}

handle_slot * pinned_thread(void * handle) noexcept
{
    handle_slot * const slot = pin_thread(handle);
    if (slot == nullptr) {
        set_last_error(error_invalid_handle);
    }
    return slot;
}

void release_thread(handle_slot & slot) noexcept
{
    if (!unpin(slot)) {
        return;
    }
    thread_record const & record = record_of(slot);
    if (record.end.load(std::memory_order_acquire) == leaving) {
        ::pthread_detach(record.thread); // also of the calling thread itself, at its end
    }
    free_slot(slot);
}

} // namespace zel::platform
