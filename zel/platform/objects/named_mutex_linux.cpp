// SPDX-License-Identifier: MIT
#include "zel/platform/objects/named_mutex_linux.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/brief_lock.h"
#include "zel/platform/waits/uninterrupted.h"

namespace zel::platform {
namespace {

// The slots of closed handles whose mutex is owned by a thread of this process.
constinit brief_lock closed_lock;
constinit std::uint32_t first_closed = 0; // one more than the number of the slot, 0 for none

std::uint64_t own_mark() { return known_process_mark.load(std::memory_order_relaxed); }

robust_mutex mutex_of(handle_slot & slot) { return mutex_in(memory_in(slot), own_mark()); }

robust_mutex mutex_of(void * block)
{
    auto & object = *static_cast<named_mutex *>(block);
    return {object.state, object.ownership, own_mark()};
}

void keep(handle_slot & slot)
{
    closed_lock.lock();
    slot.next_free.store(first_closed, std::memory_order_relaxed);
    first_closed = slot.number + 1;
    closed_lock.unlock();
}

void drop(handle_slot & slot)
{
    if (!unpin(slot)) {
        return;
    }
    if (mutex_of(slot).is_on_a_list_here()) {
        leave_named_memory(memory_in(slot)); // or the name stays as long as the owner
        keep(slot);
    } else {
        release_named_object(slot);
        free_slot(slot);
    }
}

} // namespace

void initialize_named_mutex(void * block, void const * initially_owned) noexcept
{
    if (*static_cast<bool const *>(initially_owned)) {
        std::uint64_t free = 0;
        mutex_of(block).take(*robust_list::own(), robust_mutex::thread_number(), free);
    }
}

void withdraw_named_mutex(void * block, void const * initially_owned) noexcept
{
    if (*static_cast<bool const *>(initially_owned)) {
        robust_mutex const mutex = mutex_of(block);
        mutex.give_back(*robust_list::own(), mutex.state.load(std::memory_order_relaxed));
    }
}

std::uint32_t wait_for_named_mutex(handle_slot & slot, void * handle,
                                   std::uint32_t milliseconds) noexcept
{
    robust_list * const list = robust_list::own();
    if (list == nullptr || !use_named_objects()) {
        return wait_failed;
    }
    std::uint32_t const self = robust_mutex::thread_number();
    std::int64_t const until = milliseconds == 0 ? 0 : moment_after(milliseconds);
    for (;;) {
        // A thread that is told to stop does so at the end of this, without the pin: it may be
        // terminated there.
        uninterrupted const guard;
        bool const pinned = pin(slot, handle);
        if (!pinned || (slot.access.load(std::memory_order_relaxed) & synchronize) == 0) {
            set_last_error(pinned ? error_access_denied : error_invalid_handle);
            if (pinned) {
                drop(slot);
            }
            return wait_failed;
        }
        robust_mutex const mutex = mutex_of(slot);
        std::uint32_t result = wait_failed;
        if (!mutex.is_mine(self, word_of(mutex.state.load(std::memory_order_relaxed)))) {
            result = mutex.wait(*list, until);
        } else if (mutex.take_again()) {
            result = wait_object_0;
        }
        drop(slot);
        if (result != wait_stopped) {
            return result;
        }
    }
}

bool release_named_mutex(handle_slot & slot, void * handle) noexcept
{
    uninterrupted const guard;
    if (!use_named_objects()) {
        return false;
    }
    if (!pin(slot, handle)) {
        return fail(error_invalid_handle);
    }
    robust_mutex const mutex = mutex_of(slot);
    std::uint64_t const state = mutex.state.load(std::memory_order_relaxed);
    bool const mine = mutex.is_mine(robust_mutex::thread_number(), word_of(state));
    if (mine) {
        mutex.give_back(*robust_list::own(), state);
    }
    drop(slot);
    return mine || fail(error_not_owner);
}

bool close_named_mutex(handle_slot & slot, void * handle) noexcept
{
    uninterrupted const guard;
    std::uint32_t word = 0;
    if (!retire(slot, handle, word)) {
        return fail(error_invalid_handle);
    }
    drop(slot);
    return true;
}

void free_closed_mutexes() noexcept
{
    closed_lock.lock();
    std::uint32_t number = first_closed;
    first_closed = 0;
    closed_lock.unlock();
    while (number != 0) {
        handle_slot & slot = slot_numbered(number - 1);
        number = slot.next_free.load(std::memory_order_relaxed);
        if (mutex_of(slot).is_on_a_list_here()) {
            keep(slot);
        } else {
            unmap_named_memory(memory_in(slot));
            free_slot(slot);
        }
    }
}

void forget_owners_of_closed_mutexes() noexcept { closed_lock.reset(); }

} // namespace zel::platform
