// SPDX-License-Identifier: MIT
#include "zel/platform/objects/named_waitable_linux.h"

#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/objects/robust_mutex_linux.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/handles.h"
#include "zel/platform/waits/uninterrupted.h"

// The state of an object:
//
//     low half   if no thread sleeps: the number of free units, of an event 1 when it is set;
//                if a thread may sleep: `queued` and the low bits of the number; no unit is free
//     high half  the number: how often the low half was written with `queued` set
//
// Waiters sleep on the low half. The kernel keeps them in the order in which they fell asleep,
// removes a thread that is killed or stopped or runs a signal handler, and tells the waking thread
// how many it has woken. So the kernel has the queue, and a wake hands the unit over: a woken
// thread owns its unit, and a thread that dies leaves nothing in the memory to be given back. These
// are the invariants:
//
// 1. No thread sleeps while the low half has no `queued`. A thread that wants to sleep first writes
//    `queued` with the next number, and sleeps only while the low half still has that number.
// 2. A unit is stored as free only when no thread sleeps. A releasing thread writes the next number
//    too: from then on no thread that wrote an earlier number can fall asleep. If its wake then
//    finds no sleeper, and the number is still its own when it exchanges it for the unit, no thread
//    sleeps at all.
// 3. A manual-reset event is set and its waiters are woken in one step of the kernel.
//
// So every operation takes effect in one step, an exchange or a call of the kernel, and a kill
// comes before or after it. Only a release of several units may take two steps: first the waiters,
// then the rest. A kill in between loses the rest.
//
// A number is reused after 2^31 writes. This does harm only if a thread pauses between its write
// and its sleep, or between its wake and its exchange, for exactly a multiple of that many writes.
namespace zel::platform {
namespace {

constexpr std::uint32_t queued = 0x80000000;

std::uint64_t with_next_number(std::uint64_t state)
{
    std::uint32_t const number = tag_of(state) + 1;
    return std::uint64_t{number} << 32 | queued | number;
}

bool is_queued(std::uint64_t state) { return (word_of(state) & queued) != 0; }

bool has_free_unit(std::uint64_t state) { return word_of(state) != 0 && !is_queued(state); }

atomic<std::uint32_t> & low_half(named_waitable & object)
{
    void * const address = &object.state;
    return *static_cast<atomic<std::uint32_t> *>(address);
}

bool is_manual(named_waitable const & event)
{
    return event.manual.load(std::memory_order_relaxed) != 0;
}

/// Writes the next number into a state with `queued`, so that no thread that wrote an earlier
/// number can fall asleep.
/// \param state  receives what was written; on failure what another thread wrote.
bool take_number(named_waitable & object, std::uint64_t & state)
{
    std::uint64_t const next = with_next_number(state);
    if (!object.state.compare_exchange_weak(state, next)) {
        return false;
    }
    state = next;
    return true;
}

constexpr int everybody = 0x7FFFFFFF;

} // namespace

void initialize(named_waitable & object, std::uint32_t initial, std::uint32_t maximum,
                bool manual) noexcept
{
    object.maximum.store(maximum, std::memory_order_relaxed);
    object.manual.store(manual ? 1 : 0, std::memory_order_relaxed);
    object.state.store(initial, std::memory_order_release);
}

std::uint32_t wait_for(named_waitable & object, std::int64_t until) noexcept
{
    bool const manual = is_manual(object);
    std::uint64_t state = object.state.load(std::memory_order_acquire);
    for (;;) {
        if (has_free_unit(state)) {
            if (manual
                || object.state.compare_exchange_weak(state, state - 1,
                                                      std::memory_order_acquire)) {
                return wait_object_0;
            }
            continue;
        }
        if (until == 0) {
            return wait_timeout;
        }
        std::uint64_t const mine = with_next_number(state);
        if (!object.state.compare_exchange_weak(state, mine)) {
            continue;
        }
        wake_reason const reason = wait_interruptibly(low_half(object), word_of(mine), until, true);
        // This also makes visible what the thread that woke this one did before.
        state = object.state.load(std::memory_order_acquire);
        if (reason == wake_reason::woken) {
            return wait_object_0;
        }
        if (reason == wake_reason::timed_out) {
            return wait_timeout;
        }
        if (told_to_stop()) {
            return wait_stopped;
        }
    }
}

bool set(named_waitable & event) noexcept
{
    std::uint64_t state = event.state.load(std::memory_order_relaxed);
    for (;;) {
        if (is_queued(state)) {
            if (!take_number(event, state)) {
                continue;
            }
            if (is_manual(event)) {
                store_and_wake_all(low_half(event), 1, true);
                return true;
            }
            if (wake_address(low_half(event), 1, true) != 0) {
                return true;
            }
        }
        // Written even if the event is set already, so that what this thread did before becomes
        // visible to the thread that is let through.
        if (event.state.compare_exchange_strong(
                state, with_word(state, 1), std::memory_order_release, std::memory_order_relaxed)) {
            return true;
        }
    }
}

bool reset(named_waitable & event) noexcept
{
    std::uint64_t state = event.state.load(std::memory_order_relaxed);
    while (has_free_unit(state) && !event.state.compare_exchange_weak(state, with_word(state, 0))) {
    }
    return true;
}

bool pulse(named_waitable & event) noexcept
{
    // Either the event is set and no thread sleeps, or it is not set and threads may sleep.
    std::uint64_t state = event.state.load(std::memory_order_relaxed);
    for (;;) {
        if (is_queued(state)) {
            if (take_number(event, state)) {
                wake_address(low_half(event), is_manual(event) ? everybody : 1, true);
                return true;
            }
        } else if (!has_free_unit(state)
                   || event.state.compare_exchange_weak(state, with_word(state, 0))) {
            return true;
        }
    }
}

bool release(named_waitable & semaphore, std::uint32_t count, std::int32_t * previous) noexcept
{
    std::uint32_t const maximum = semaphore.maximum.load(std::memory_order_relaxed);
    std::uint32_t given = 0;
    std::uint64_t state = semaphore.state.load(std::memory_order_relaxed);
    for (;;) {
        bool const has_queue = is_queued(state);
        std::uint32_t const free = has_queue ? 0 : word_of(state);
        if (count - given > maximum - free) {
            if (given != 0 && !semaphore.state.compare_exchange_weak(state, state - given)) {
                continue;
            }
            set_last_error(error_too_many_posts);
            return false;
        }
        if (has_queue) {
            if (!take_number(semaphore, state)) {
                continue;
            }
            given += static_cast<std::uint32_t>(
                wake_address(low_half(semaphore), static_cast<int>(count - given), true));
        }
        if (given == count
            || semaphore.state.compare_exchange_strong(
                state, with_word(state, free + count - given), std::memory_order_release,
                std::memory_order_relaxed)) {
            if (previous != nullptr) {
                *previous = given != 0 ? 0 : static_cast<std::int32_t>(free);
            }
            return true;
        }
    }
}

} // namespace zel::platform
