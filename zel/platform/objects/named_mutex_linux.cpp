// SPDX-License-Identifier: MIT
#include "zel/platform/objects/named_mutex_linux.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/objects/owned_mutexes_linux.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/brief_lock.h"
#include "zel/platform/waits/uninterrupted.h"

namespace zel::platform {
namespace {

// The slots of closed handles whose mutex is owned by a thread of this process.
constinit brief_lock closed_lock;
constinit std::uint32_t first_closed = 0; // one more than the number of the slot, 0 for none

mutex_lanes & lanes_in(handle_slot & slot)
{
    return *static_cast<mutex_lanes *>(memory_in(slot).block);
}

bool is_on_a_list_here(handle_slot & slot)
{
    return is_on_a_list_here(lane_in(slot), known_process_mark.load(std::memory_order_relaxed));
}

bool make_known(robust_caller & caller)
{
    if (robust_list::own() == nullptr || !use_named_objects() || owner_number() == 0) {
        return false;
    }
    caller = known_caller();
    return true;
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
    if (is_on_a_list_here(slot)) {
        leave_named_memory(memory_in(slot)); // else the name would exist as long as the owner
        keep(slot);
    } else {
        release_named_object(slot);
        free_slot(slot);
    }
}

} // namespace

void initialize_named_mutex(void * block, void const * initially_owned) noexcept
{
    robust_mutex & lane = static_cast<mutex_lanes *>(block)->lanes[0];
    lane.space.store(own_pid_namespace(), std::memory_order_relaxed);
    if (*static_cast<bool const *>(initially_owned)) {
        take_free(lane, known_caller(), 0);
    }
}

void withdraw_named_mutex(void * block, void const * initially_owned) noexcept
{
    if (*static_cast<bool const *>(initially_owned)) {
        free_and_wake(static_cast<mutex_lanes *>(block)->lanes[0], known_caller());
    }
}

bool settle_lane(handle_slot & slot) noexcept
{
    void * const room = slot.room;
    mutex_lanes & mutex = lanes_in(slot);
    std::uint32_t const lane = find_lane(mutex, own_pid_namespace());
    if (lane == most_namespaces) {
        set_last_error(error_no_system_resources, "too many pid namespaces use the mutex");
        return false;
    }
    static_cast<named_mutex_room *>(room)->lane = &mutex.lanes[lane];
    return true;
}

std::uint32_t wait_across(handle_slot & slot, void * handle, std::uint32_t milliseconds) noexcept
{
    {
        uninterrupted const guard;
        free_and_wake(lane_in(slot), known_caller());
    }
    return wait_for_named_mutex(slot, handle, milliseconds);
}

std::uint32_t wait_for_named_mutex(handle_slot & slot, void * handle,
                                   std::uint32_t milliseconds) noexcept
{
    robust_caller caller;
    if (!make_known(caller)) {
        return wait_failed;
    }
    std::int64_t const until = milliseconds == 0 ? 0 : moment_after(milliseconds);
    for (;;) {
        // A thread that is told to stop does so at the end of this block, after the pin was
        // dropped: it may be terminated there.
        uninterrupted const guard;
        if (!pin(slot, handle)) {
            set_last_error(error_invalid_handle);
            return wait_failed;
        }
        bool const allowed = (slot.access.load(std::memory_order_relaxed) & synchronize) != 0;
        std::uint32_t const result
            = allowed ? wait_for(lanes_in(slot), lane_in(slot), caller, until) : wait_failed;
        if (!allowed) {
            set_last_error(error_access_denied);
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
    robust_caller caller;
    if (!make_known(caller)) {
        return false;
    }
    if (!pin(slot, handle)) {
        return fail(error_invalid_handle);
    }
    bool const mine = give_back(lanes_in(slot), lane_in(slot), caller);
    drop(slot);
    return mine || fail(error_not_owner);
}

bool close_named_mutex(handle_slot & slot, void * handle) noexcept
{
    uninterrupted const guard;
    use_named_objects(); // if it fails, no thread of this process owns a named mutex
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
        if (is_on_a_list_here(slot)) {
            keep(slot);
        } else {
            unmap_named_memory(memory_in(slot));
            free_slot(slot);
        }
    }
}

void abandon_named_mutexes() noexcept
{
    uninterrupted const guard;
    for_each_slot([](handle_slot & slot) {
        // A slot that was just taken has no kind yet, and its number must not be read.
        std::uint32_t const tag = tag_of(slot.references.load(std::memory_order_acquire));
        if (static_cast<handle_kind>(tag & 15) != handle_kind::named_mutex
            || !pin(slot, handle_of(slot, tag))) {
            return;
        }
        robust_mutex & lane = lane_in(slot);
        robust_caller caller = known_caller();
        caller.self = this_thread.id; // `owner_number` is 0 by now
        if (is_mine(lane, caller, lane.state.load(std::memory_order_relaxed))
            && is_on_a_list_here(slot)) {
            free_and_wake(lane, caller, owner_died);
        }
        drop(slot);
    });
}

void forget_owners_of_closed_mutexes() noexcept { closed_lock.reset(); }

} // namespace zel::platform
