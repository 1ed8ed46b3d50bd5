// SPDX-License-Identifier: MIT
#include "zel/platform/threads/threads.h"

#include "zel/platform/host/fork_handlers.h"
#include "zel/platform/last_error.h"
#include "zel/platform/threads/this_thread_linux.h"
#include "zel/platform/waits/address_wait.h"
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include <pthread.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

namespace zel::platform {
namespace {

constexpr std::uint32_t thread_all_access = 0x1FFFFF;

constexpr std::int64_t slice = 5'000'000; // nanoseconds between two looks where the host needs them

constinit brief_lock preparation; // only taken behind prepare_forks()
constinit atomic<bool> ends_prepared{false};
constinit atomic<bool> starts_prepared{false};

constinit atomic<void (*)(bool) noexcept> abandon_what_is_held{nullptr};

constinit pthread_key_t end_key{}; // its destructor runs at the end of a thread
constinit bool tells_ids = false; // whether id_of gives the host's numbers

// The C library gives no thread's number away, but the clock of its processor time is made of it:
// all bits inverted, above three that tell the sort of clock.
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

// Of all threads only the forking one lives in the child; the C library has taken their stacks.
void after_fork_in_child() noexcept
{
    this_thread.id = 0;
    this_thread.owner_number = 0;
    this_thread.holds.store(0, std::memory_order_relaxed);
    preparation.reset();
    forget_graveyard();
    for_each_slot(forget_thread_of_parent);
    if (handle_slot * const slot = this_thread.slot) {
        thread_record & record = record_of(*slot);
        record.id.store(static_cast<std::uint32_t>(::gettid()), std::memory_order_relaxed);
        record.control.store(0, std::memory_order_relaxed); // nobody is left who would resume it
        std::uint64_t const tag = slot->references.load(std::memory_order_relaxed) & ~word_mask;
        slot->references.store(tag | (tag == 0 ? 1 : 2), std::memory_order_relaxed);
    }
}

void end_of_thread(handle_slot & slot)
{
    thread_record & record = record_of(slot);
    {
        uninterrupted const guard;
        if (record.teardown.function != nullptr) {
            record.teardown.function(record.teardown.data);
            record.teardown.function = nullptr;
        }
    }
    // From one step on nobody stops this thread any more. Nobody sleeps on `control` then: whoever
    // suspended it was woken by the resume.
    std::uint32_t now = record.control.load(std::memory_order_acquire);
    while ((now & stop_mask) != 0 || !record.control.compare_exchange_weak(now, now | past_stops)) {
        if ((now & stop_mask) != 0) {
            admit_stop_signal();
            stop_here();
            now = record.control.load(std::memory_order_acquire);
        }
    }
    this_thread.slot = nullptr;
    this_thread.control = &nobody_stops;
    abandon_holds(true);

    // With the handle closed nobody sees this thread off. Who closes it at this moment looks for
    // `past_stops` after closing, and then waits for what is settled here.
    bool const is_alone = tag_of(slot.references.load()) == 0;
    if (is_alone) {
        ::pthread_detach(::pthread_self());
    }
    record.end.store(is_alone ? ended : on_last_steps, std::memory_order_release);
    wake_address(record.end, INT_MAX, false);
    let_go(slot);
}

void at_end(void * value)
{
    if (!this_thread.last_round) {
        // The others' destructors come first: they are called in any order, and again as long as
        // one of them has set its key.
        this_thread.last_round = true;
        if (::pthread_setspecific(end_key, value) == 0) {
            return;
        }
    }
    if (handle_slot * const slot = this_thread.slot) {
        end_of_thread(*slot);
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

bool prepare_ends_once() { return ::pthread_key_create(&end_key, at_end) == 0; }

bool prepare_starts_once()
{
    prepare_stops();
    tells_ids = id_of(::pthread_self()) == static_cast<std::uint32_t>(::gettid());
    return true;
}

// Has `step` done once in the process; it is tried again when it failed for want of memory.
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
    admit_stop_signal();
    record.start.store(stoppable, std::memory_order_release);
    stop_here(); // a signal that came before `this_thread` was filled in did nothing

    bool const is_told_of_end = ::pthread_setspecific(end_key, &slot) == 0;
    record.exit_code.store(record.proc(record.argument), std::memory_order_relaxed);
    if (!is_told_of_end) {
        end_of_thread(slot);
    }
    return nullptr;
}

// The platform's priorities in rising order and the host's nice values for them.
struct priority_row {
    std::int32_t priority;
    int nice;
};
constexpr priority_row priorities[]
    = {{-15, 19}, {-2, 10}, {-1, 5}, {0, 0}, {1, -5}, {2, -10}, {15, -20}};

bool has_ended(thread_record const & record)
{
    return record.end.load(std::memory_order_acquire) != not_ended;
}

// The state of the thread's end, after what the caller can do for it. The host's own work at the
// end of a thread belongs to it: only then the mutexes that the thread owned are abandoned.
std::uint32_t end_of(thread_record & record)
{
    std::uint32_t end = record.end.load(std::memory_order_acquire);
    if (end == on_last_steps && record.end.compare_exchange_strong(end, being_seen_off)) {
        join(record);
        record.end.store(ended, std::memory_order_release);
        wake_address(record.end, INT_MAX, false);
        return ended;
    }
    if (end == unburied) {
        visit_graveyard();
        end = record.end.load(std::memory_order_acquire);
    }
    return end;
}

// For a thread that is on its way out.
void see_off(thread_record & record)
{
    for (;;) {
        std::uint32_t const end = end_of(record);
        if (end == ended) {
            return;
        }
        wait_on_address(record.end, end, -1, false);
    }
}

} // namespace

void join(thread_record & record) noexcept
{
    if (::pthread_join(record.thread, nullptr) == EDEADLK) {
        ::pthread_detach(record.thread); // by itself, from another destructor at its end
    }
}

void let_go(handle_slot & slot) noexcept
{
    if (unpin(slot)) {
        free_slot(slot);
    }
}

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
    visit_graveyard();
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
    // With this the thread runs, and may be over and its slot another's at once.
    atomic<std::uint32_t> & start = record.start;
    if (start.exchange(settled, std::memory_order_acq_rel) == awaited) {
        wake_address(start, 1, false);
    }
    return result;
}

bool get_exit_code_thread(void * handle, std::uint32_t & code) noexcept
{
    uninterrupted const guard;
    handle_slot * const slot = pinned_thread(handle);
    if (slot == nullptr) {
        return false;
    }
    thread_record & record = record_of(*slot);
    code = still_active;
    if (has_ended(record)) {
        see_off(record);
        code = record.exit_code.load(std::memory_order_relaxed);
    }
    let_go(*slot);
    return true;
}

std::uint32_t wait_for_thread(void * handle, std::int64_t until) noexcept
{
    for (bool late = until == 0;;) {
        uninterrupted const guard;
        handle_slot * const slot = pinned_thread(handle);
        if (slot == nullptr) {
            return 0xFFFFFFFF;
        }
        thread_record & record = record_of(*slot);
        std::uint32_t const end = end_of(record);
        if (end != ended && !late) {
            late = wait_interruptibly(record.end, end, until, false) == wake_reason::late;
            let_go(*slot);
            stop_if_told();
            continue;
        }
        let_go(*slot);
        return end == ended ? 0 : 258;
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
        std::uint32_t const end = end_of(record);
        bool const changed = word.load(std::memory_order_acquire) != expected;
        if (end == ended || changed || (until >= 0 && (until == 0 || monotonic_now() >= until))) {
            let_go(*slot);
            return end == ended ? 0 : changed ? 1 : 258;
        }
        if (!wait_for_either_interruptibly(record.end, end, word, expected, until)) {
            // Linux before 5.16: sleep for a change, and look for the end now and then.
            std::int64_t const next_look = monotonic_now() + slice;
            wait_interruptibly(word, expected, until < 0 || next_look < until ? next_look : until,
                               false);
        }
        let_go(*slot);
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
    if ((record_of(*slot).control.load() & past_stops) != 0) {
        see_off(record_of(*slot));
    }
    let_go(*slot);
    visit_graveyard();
    return true;
}

std::int32_t get_thread_priority(void * handle) noexcept
{
    uninterrupted const guard;
    handle_slot * const slot = pinned_thread(handle);
    if (slot == nullptr) {
        return priority_error;
    }
    thread_record const & record = record_of(*slot);
    errno = 0;
    int const nice = ::getpriority(PRIO_PROCESS, record.id.load(std::memory_order_relaxed));
    bool const failed = has_ended(record) || (nice == -1 && errno != 0);
    let_go(*slot);
    if (failed) {
        set_last_error(error_access_denied);
        return priority_error;
    }
    // Somebody else may have set a value in between: the nearest counts.
    priority_row const * nearest = priorities;
    for (priority_row const & row : priorities) {
        if (std::abs(row.nice - nice) < std::abs(nearest->nice - nice)) {
            nearest = &row;
        }
    }
    return nearest->priority;
}

bool set_thread_priority(void * handle, std::int32_t priority) noexcept
{
    uninterrupted const guard;
    handle_slot * const slot = pinned_thread(handle);
    if (slot == nullptr) {
        return false;
    }
    auto const row
        = std::find_if(std::begin(priorities), std::end(priorities),
                       [&](priority_row const & each) { return each.priority == priority; });
    std::uint32_t error = error_success;
    thread_record const & record = record_of(*slot);
    if (row == std::end(priorities)) {
        error = error_invalid_parameter;
    } else if (has_ended(record)
               || ::setpriority(PRIO_PROCESS, record.id.load(std::memory_order_relaxed), row->nice)
                   != 0) {
        error = error_access_denied;
    }
    let_go(*slot);
    if (error != error_success) {
        set_last_error(error);
    }
    return error == error_success;
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
            return id; // not kept: a forked child could not be told that it has another
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
    // What a destructor takes after this has the end watched anew.
    this_thread.owner_number = 0;
    if (this_thread.holds.load(std::memory_order_relaxed) != 0) {
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
