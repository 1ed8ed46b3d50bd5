// SPDX-License-Identifier: MIT
#include "zel/platform/threads/threads.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/host/fork_handlers.h"
#include "zel/platform/host/stay_loaded.h"
#include "zel/platform/last_error.h"
#include "zel/platform/threads/stop_handler_linux.h"
#include "zel/platform/threads/stop_signal_linux.h"
#include "zel/platform/threads/thread_ends_linux.h"
#include "zel/platform/threads/thread_priorities_linux.h"
#include "zel/platform/waits/address_wait.h"
#include <cerrno>
#include <cstring>
#include <new>

#include <pthread.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace zel::platform {
namespace {

constexpr std::uint32_t thread_all_access = 0x1FFFFF;

constinit brief_lock preparation; // only taken after prepare_forks()
constinit atomic<bool> ends_prepared{false};
constinit atomic<bool> starts_prepared{false};

constinit atomic<void (*)(bool) noexcept> abandon_what_is_held{nullptr};

constinit pthread_key_t end_key{}; // its destructor runs at the end of a thread
constinit bool tells_ids = false; // true if id_of returns the host's numbers

// The C library does not reveal a thread's number, but the clock of the thread's processor time is
// computed from it: all bits inverted, above three bits for the kind of clock.
std::uint32_t id_of(pthread_t thread)
{
    clockid_t clock = 0;
    return ::pthread_getcpuclockid(thread, &clock) == 0 ? static_cast<std::uint32_t>(~(clock >> 3))
                                                        : 0;
}

void forget_thread_of_parent(handle_slot & slot)
{
    std::uint64_t const references = slot.references.load(std::memory_order_relaxed);
    if (&slot == this_thread.slot
        || static_cast<handle_kind>(tag_of(references) & 15) != handle_kind::thread) {
        return;
    }
    thread_record & record = record_of(slot);
    if (record.end.load(std::memory_order_relaxed) != ended) {
        record.exit_code.store(0xFFFFFFFF, std::memory_order_relaxed);
        record.end.store(ended, std::memory_order_relaxed);
    }
    record.control.store(past_stops, std::memory_order_relaxed);
    slot.references.store((references & ~word_mask) | 1, std::memory_order_relaxed);
}

// Only the forking thread exists in the child; the C library has reclaimed the stacks of the
// others.
void after_fork_in_child() noexcept
{
    this_thread.id = 0;
    this_thread.owner_number = 0;
    this_thread.holds.store(0, std::memory_order_relaxed);
    preparation.reset();
    forget_terminated_threads();
    for_each_slot(forget_thread_of_parent);
    if (handle_slot * const slot = this_thread.slot) {
        thread_record & record = record_of(*slot);
        record.id.store(static_cast<std::uint32_t>(::gettid()), std::memory_order_relaxed);
        record.control.store(0, std::memory_order_relaxed); // no thread is left to resume it
        std::uint64_t const tag = slot->references.load(std::memory_order_relaxed) & ~word_mask;
        slot->references.store(tag | (tag == 0 ? 1 : 2), std::memory_order_relaxed);
    }
}

void at_end(void * value)
{
    if (!this_thread.last_round) {
        // Destructors of other keys have to run first. The host calls them in any order, and again
        // as long as one of them has set its key.
        this_thread.last_round = true;
        if (::pthread_setspecific(end_key, value) == 0) {
            return;
        }
    }
    if (handle_slot * const slot = this_thread.slot) {
        end_own_thread(*slot);
        return;
    }
    if (this_thread.teardown.function != nullptr) {
        thread_teardown const teardown = this_thread.teardown;
        this_thread.teardown = {nullptr, nullptr};
        teardown.function(teardown.data);
    }
    abandon_holds(true);
}

constexpr fork_handlers around_forks{nullptr, nullptr, after_fork_in_child};

bool prepare_forks() { return add_fork_handlers(fork_place::threads, around_forks); }

bool prepare_ends_once()
{
    stay_loaded();
    return ::pthread_key_create(&end_key, at_end) == 0;
}

bool prepare_starts_once()
{
    prepare_stops();
    prepare_ends();
    tells_ids = id_of(::pthread_self()) == static_cast<std::uint32_t>(::gettid());
    return true;
}

// Performs `step` once in the process; tries again if it failed for lack of memory.
bool prepare(atomic<bool> & done, bool (*step)())
{
    if (done.load(std::memory_order_acquire)) {
        return true;
    }
    uninterrupted const guard;
    preparation.lock();
    bool const succeeded = done.load(std::memory_order_relaxed) || step();
    done.store(succeeded, std::memory_order_release);
    preparation.unlock();
    return succeeded;
}

// The body of every thread. Not noexcept: pthread_exit unwinds through it.
void * run(void * argument)
{
    handle_slot & slot = *static_cast<handle_slot *>(argument);
    thread_record & record = record_of(slot);
    record.stack_end = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    this_thread.slot = &slot;
    this_thread.control = &record.control;
    if (!tells_ids) {
        record.id.store(static_cast<std::uint32_t>(::gettid()), std::memory_order_release);
        wake_address(record.id, 1, false);
    }
    std::uint32_t state = starting;
    if (record.start.compare_exchange_strong(state, awaited, std::memory_order_acquire)) {
        while (record.start.load(std::memory_order_acquire) == awaited) {
            wait_on_address(record.start, awaited, -1, false);
        }
    }
    this_thread.id = record.id.load(std::memory_order_relaxed);
    begin_at_normal_priority();
    admit_stop_signal();
    record.start.store(stoppable, std::memory_order_release);
    stop_here(); // a signal that came before `this_thread` was set had no effect

    bool const is_told_of_end = ::pthread_setspecific(end_key, &slot) == 0;
    record.exit_code.store(record.proc(record.argument), std::memory_order_relaxed);
    if (!is_told_of_end) {
        end_own_thread(slot);
    }
    return nullptr;
}

} // namespace

void * begin_thread(unsigned int (*proc)(void *), void * argument, atomic<std::uint32_t> * id,
                    void ** handle) noexcept
{
    if (proc == nullptr) {
        set_last_error(error_invalid_parameter);
        return nullptr;
    }
    if (!prepare_forks() || !prepare(ends_prepared, prepare_ends_once)
        || !prepare(starts_prepared, prepare_starts_once)) {
        set_last_error(error_not_enough_memory);
        return nullptr;
    }
    uninterrupted const guard;
    reap_threads();
    handle_slot * const slot = take_slot();
    if (slot == nullptr) {
        return nullptr;
    }
    void * const room = slot->room;
    thread_record & record = *new (room) thread_record{};
    record.exit_code.store(0xFFFFFFFF,
                           std::memory_order_relaxed); // of a thread that pthread_exit ends
    record.proc = proc;
    record.argument = argument;
    void * const result = publish(*slot, handle_kind::thread, 0, thread_all_access);
    pin(*slot, result); // for the thread

    if (int const error = ::pthread_create(&record.thread, nullptr, run, slot); error != 0) {
        std::uint32_t word = 0;
        retire(*slot, result, word);
        unpin(*slot);
        unpin(*slot);
        free_slot(*slot);
        set_last_error(error == EAGAIN ? error_not_enough_memory : error_from_errno(error));
        return nullptr;
    }
    if (tells_ids) {
        record.id.store(id_of(record.thread), std::memory_order_relaxed);
    }
    while (record.id.load(std::memory_order_acquire) == 0) {
        wait_on_address(record.id, 0, -1, false);
    }
    if (id != nullptr) {
        id->store(record.id.load(std::memory_order_relaxed), std::memory_order_relaxed);
    }
    if (handle != nullptr) {
        *handle = result;
    }
    // After this the thread runs. It may end at once, and its slot may be reused.
    atomic<std::uint32_t> & start = record.start;
    if (start.exchange(settled, std::memory_order_acq_rel) == awaited) {
        wake_address(start, 1, false);
    }
    return result;
}

void set_thread_name(char const * name) noexcept
{
    char shown[16]{};
    std::strncpy(shown, name, sizeof shown - 1);
    ::prctl(PR_SET_NAME, shown);
}

std::uint32_t current_thread_id() noexcept
{
    if (this_thread.id == 0) {
        auto const id = static_cast<std::uint32_t>(::gettid());
        if (!prepare_forks()) {
            return id; // not stored: it could not be updated in a forked child
        }
        this_thread.id = id;
    }
    return this_thread.id;
}

bool watch_owner(void (*abandon)(bool) noexcept) noexcept
{
    uninterrupted const guard;
    abandon_what_is_held.store(abandon, std::memory_order_relaxed);
    if (!prepare_forks() || !prepare(ends_prepared, prepare_ends_once)
        || (this_thread.slot == nullptr && ::pthread_setspecific(end_key, &this_thread) != 0)) {
        set_last_error(error_not_enough_memory);
        return false;
    }
    this_thread.owner_number = current_thread_id();
    return true;
}

void abandon_holds(bool is_orderly) noexcept
{
    // If a destructor takes a mutex after this, the thread's end is watched again.
    bool const was_owner = this_thread.owner_number != 0;
    this_thread.owner_number = 0;
    // A terminated thread may have taken a mutex that it has not counted yet.
    if (was_owner && (!is_orderly || this_thread.holds.load(std::memory_order_relaxed) != 0)) {
        abandon_what_is_held.load(std::memory_order_relaxed)(is_orderly);
        this_thread.holds.store(0, std::memory_order_relaxed);
    }
}

bool set_thread_teardown(void (*function)(void *), void * data) noexcept
{
    uninterrupted const guard;
    if (!prepare_forks() || !prepare(ends_prepared, prepare_ends_once)) {
        return false;
    }
    handle_slot * const slot = this_thread.slot;
    if (slot == nullptr && ::pthread_setspecific(end_key, &this_thread) != 0) {
        return false;
    }
    (slot == nullptr ? this_thread.teardown : record_of(*slot).teardown) = {function, data};
    return true;
}

} // namespace zel::platform
