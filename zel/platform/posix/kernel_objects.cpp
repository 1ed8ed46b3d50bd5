// SPDX-License-Identifier: MIT
#include "zel/platform/kernel_objects.h"

#include "zel/platform/address_wait.h"
#include "zel/platform/handles.h"
#include "zel/platform/last_error.h"
#include "zel/platform/posix/robust_mutex.h"
#include "zel/platform/threads.h"
#include "zel/platform/unnamed_objects.h"
#include <cstddef>

#include <pthread.h>

namespace zel::platform {
namespace {

bool refuse(std::uint32_t error)
{
    set_last_error(error);
    return false;
}

std::uint32_t refuse_wait(std::uint32_t error)
{
    set_last_error(error);
    return wait_failed;
}

mutex_ownership & ownership_in(handle_slot & slot)
{
    static_assert(offsetof(handle_slot, room) == robust_word_distance);
    static_assert(sizeof(mutex_ownership) <= sizeof(handle_slot::room));
    void * const room = slot.room;
    return *static_cast<mutex_ownership *>(room);
}

robust_mutex unnamed_mutex(handle_slot & slot) { return {slot.state, ownership_in(slot), 0}; }

/// \name Mutexes whose handle was closed while they were owned
/// The kernel follows the owner's list into the slot as long as the owner neither releases the
/// mutex nor ends. Later creations look whether it has ended.
/// @{
constinit brief_lock leftovers_lock;
constinit std::uint32_t first_leftover = 0; // one more than the number of the slot, 0 for none

bool is_owned(handle_slot & slot)
{
    return (word_of(slot.state.load(std::memory_order_acquire)) & thread_mask) != 0;
}

void keep_leftover(handle_slot & slot)
{
    auto const number
        = static_cast<std::uint32_t>(&slot - handle_table.load(std::memory_order_relaxed)) + 1;
    leftovers_lock.lock();
    slot.next_free.store(first_leftover, std::memory_order_relaxed);
    first_leftover = number;
    leftovers_lock.unlock();
}

void free_leftovers()
{
    leftovers_lock.lock();
    std::uint32_t number = first_leftover;
    first_leftover = 0;
    leftovers_lock.unlock();
    while (number != 0) {
        handle_slot & slot = handle_table.load(std::memory_order_relaxed)[number - 1];
        number = slot.next_free.load(std::memory_order_relaxed);
        if (is_owned(slot)) {
            keep_leftover(slot);
        } else {
            free_slot(slot);
        }
    }
}
/// @}

void drop_mutex(handle_slot & slot)
{
    if (unpin(slot)) {
        if (is_owned(slot)) {
            keep_leftover(slot);
        } else {
            free_slot(slot);
        }
    }
}

// In the child after a fork nobody waits, and of the parent's threads only a copy of the forking
// one is left, which owns nothing.
void renew_slot(handle_slot & slot)
{
    std::uint64_t const references = slot.references.load(std::memory_order_relaxed);
    auto const kind = static_cast<handle_kind>(tag_of(references) & 15);
    switch (kind) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
    case handle_kind::semaphore:
        forget_waiters(slot);
        break;
    case handle_kind::mutex:
        if (is_owned(slot)) {
            slot.state.store(with_word(slot.state.load(std::memory_order_relaxed), owner_died),
                             std::memory_order_relaxed);
        }
        break;
    default:
        return;
    }
    slot.references.store((references & ~word_mask) | 1, std::memory_order_relaxed);
}

void after_fork_in_child()
{
    this_thread.id = 0;
    forget_process_mark();
    leftovers_lock.reset();
    for_each_slot(renew_slot);
    for (std::uint32_t number = first_leftover; number != 0;) {
        handle_slot & slot = handle_table.load(std::memory_order_relaxed)[number - 1];
        number = slot.next_free.load(std::memory_order_relaxed);
        slot.state.store(with_word(slot.state.load(std::memory_order_relaxed), 0),
                         std::memory_order_relaxed);
    }
}

bool prepare_forks()
{
    static constinit std::atomic<bool> prepared{false};
    static constinit brief_lock preparation;
    if (prepared.load(std::memory_order_acquire)) {
        return true;
    }
    uninterrupted const guard;
    preparation.lock();
    if (!prepared.load(std::memory_order_relaxed)) {
        prepared.store(::pthread_atfork(nullptr, nullptr, after_fork_in_child) == 0,
                       std::memory_order_release);
    }
    preparation.unlock();
    return prepared.load(std::memory_order_relaxed) || refuse(error_not_enough_memory);
}

bool is_empty(char const * name) { return name == nullptr || *name == '\0'; }

void * refuse_named()
{
    set_last_error(error_no_system_resources);
    return nullptr;
}

void * open_named(char const * name)
{
    set_last_error(name == nullptr ? error_invalid_parameter : error_file_not_found);
    return nullptr;
}

std::uint32_t wait_for_mutex(handle_slot & slot, void * handle, std::uint32_t milliseconds)
{
    robust_list * const list = robust_list::own();
    if (list == nullptr) {
        return wait_failed;
    }
    robust_mutex const mutex = unnamed_mutex(slot);
    std::uint64_t state = slot.state.load(std::memory_order_acquire);
    while (is_alive(state, handle)) {
        std::uint32_t const word = word_of(state);
        if (word == 0) {
            if (mutex.take(*list, state)) {
                return wait_object_0;
            }
            continue;
        }
        if (mutex.is_mine(word)) {
            return mutex.take_again() ? wait_object_0 : wait_failed;
        }
        std::int64_t const until = milliseconds == 0 ? 0 : moment_after(milliseconds);
        uninterrupted const guard;
        if (!pin(slot, handle)) {
            break;
        }
        std::uint32_t const result = mutex.wait(*list, until);
        drop_mutex(slot);
        return result;
    }
    return refuse_wait(error_invalid_handle);
}

bool release_unnamed_mutex(handle_slot & slot, void * handle)
{
    std::uint64_t const state = slot.state.load(std::memory_order_relaxed);
    robust_mutex const mutex = unnamed_mutex(slot);
    if (!is_alive(state, handle)) {
        return refuse(error_invalid_handle);
    }
    if (!mutex.is_mine(word_of(state))) {
        return refuse(error_not_owner);
    }
    mutex.give_back(*robust_list::own(), state);
    return true;
}

// An owner that closes its only handle can never release the mutex. If nobody waits either, nobody
// can tell: it goes at once.
void leave_mutex_behind(handle_slot & slot, std::uint32_t word)
{
    robust_mutex const mutex = unnamed_mutex(slot);
    bool const unwatched = word_of(slot.references.load(std::memory_order_acquire)) == 1;
    if (mutex.is_mine(word) && unwatched) {
        mutex.ownership.holds.store(1, std::memory_order_relaxed);
        mutex.give_back(*robust_list::own(), slot.state.load(std::memory_order_relaxed));
    }
    drop_mutex(slot);
}

} // namespace

void * create_event(bool manual_reset, bool initially_set, char const * name) noexcept
{
    if (!is_empty(name)) {
        return refuse_named();
    }
    if (!prepare_forks()) {
        return nullptr;
    }
    void * const handle
        = create_unnamed(manual_reset ? handle_kind::manual_event : handle_kind::auto_event,
                         initially_set ? 1 : 0, 1);
    if (handle != nullptr) {
        set_last_error(error_success);
    }
    return handle;
}

void * create_mutex(bool initially_owned, char const * name) noexcept
{
    if (!is_empty(name)) {
        return refuse_named();
    }
    if (!prepare_forks() || robust_list::own() == nullptr) {
        return nullptr;
    }
    uninterrupted const guard;
    free_leftovers();
    handle_slot * const slot = take_slot();
    if (slot == nullptr) {
        return nullptr;
    }
    void * const handle = publish(*slot, handle_kind::mutex, 0, mutex_all_access);
    if (initially_owned) {
        wait_for_mutex(*slot, handle, 0);
    }
    set_last_error(error_success);
    return handle;
}

void * create_semaphore(std::int32_t initial, std::int32_t maximum, char const * name) noexcept
{
    if (maximum <= 0 || initial < 0 || initial > maximum) {
        set_last_error(error_invalid_parameter);
        return nullptr;
    }
    if (!is_empty(name)) {
        return refuse_named();
    }
    if (!prepare_forks()) {
        return nullptr;
    }
    void * const handle
        = create_unnamed(handle_kind::semaphore, static_cast<std::uint32_t>(initial),
                         static_cast<std::uint32_t>(maximum));
    if (handle != nullptr) {
        set_last_error(error_success);
    }
    return handle;
}

void * open_event(std::uint32_t, bool, char const * name) noexcept { return open_named(name); }
void * open_mutex(std::uint32_t, bool, char const * name) noexcept { return open_named(name); }
void * open_semaphore(std::uint32_t, bool, char const * name) noexcept { return open_named(name); }

std::uint32_t wait_for_single_object(void * handle, std::uint32_t milliseconds) noexcept
{
    handle_slot * const slot = slot_of(handle);
    if (slot == nullptr) {
        return refuse_wait(error_invalid_handle);
    }
    switch (kind_of(handle)) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
    case handle_kind::semaphore:
        return wait_for_unnamed(*slot, handle, milliseconds);
    case handle_kind::mutex:
        return wait_for_mutex(*slot, handle, milliseconds);
    case handle_kind::thread:
        return wait_for_thread(handle, milliseconds == 0 ? 0 : moment_after(milliseconds));
    default:
        return refuse_wait(error_invalid_handle);
    }
}

bool set_event(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
        return set_unnamed_event(*slot, handle);
    default:
        return refuse(error_invalid_handle);
    }
}

bool reset_event(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
        return reset_unnamed_event(*slot, handle);
    default:
        return refuse(error_invalid_handle);
    }
}

bool pulse_event(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
        return pulse_unnamed_event(*slot, handle);
    default:
        return refuse(error_invalid_handle);
    }
}

bool release_mutex(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::mutex:
        return release_unnamed_mutex(*slot, handle);
    default:
        return refuse(error_invalid_handle);
    }
}

bool release_semaphore(void * handle, std::int32_t count, std::int32_t * previous) noexcept
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::semaphore:
        return count > 0
            ? release_unnamed_semaphore(*slot, handle, static_cast<std::uint32_t>(count), previous)
            : refuse(error_invalid_parameter);
    default:
        return refuse(error_invalid_handle);
    }
}

bool close_handle(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    if (slot == nullptr) {
        return refuse(error_invalid_handle);
    }
    if (kind_of(handle) == handle_kind::thread) {
        return close_thread(handle);
    }
    uninterrupted const guard;
    std::uint32_t word = 0;
    if (!retire(*slot, handle, word)) {
        return refuse(error_invalid_handle);
    }
    switch (kind_of(handle)) {
    case handle_kind::mutex:
        leave_mutex_behind(*slot, word);
        break;
    default:
        if (unpin(*slot)) {
            free_slot(*slot);
        }
    }
    return true;
}

} // namespace zel::platform
