// SPDX-License-Identifier: MIT
#include "zel/platform/objects/unnamed_mutex_linux.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/objects/mutex_wait.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/uninterrupted.h"

namespace zel::platform {
namespace {

struct unnamed_mutex {
    handle_slot & slot;
    std::uint32_t self;
    atomic<std::uint64_t> & state;
    atomic<std::uint32_t> & kept_out;
    static constexpr bool is_shared = false;

    unnamed_mutex(handle_slot & mutex_slot, std::uint32_t owner) noexcept
        : slot(mutex_slot)
        , self(owner)
        , state(mutex_slot.state)
        , kept_out(mutex_room_of(mutex_slot).kept_out)
    {
    }

    bool take(std::uint64_t & now, std::uint32_t flags) const noexcept
    {
        if (!state.compare_exchange_strong(now, with_word(now, self | flags),
                                           std::memory_order_acquire, std::memory_order_acquire)) {
            return false;
        }
        count_hold(1);
        mutex_room_of(slot).more_holds.store(0, std::memory_order_relaxed); // of an owner that died
        return true;
    }

    static std::uint64_t before_sleep(std::uint64_t now) noexcept { return now | waiters_flag; }

    static bool is_gone(std::uint64_t now) noexcept
    {
        return !exists_in_process(word_of(now) & thread_mask);
    }
};

void drop_pin(handle_slot & slot)
{
    if (unpin(slot)) {
        free_slot(slot);
    }
}

bool is_mine(std::uint64_t state, std::uint32_t self)
{
    return (word_of(state) & thread_mask) == self;
}

bool hold_again(handle_slot & slot)
{
    atomic<std::uint32_t> & more_holds = mutex_room_of(slot).more_holds;
    std::uint32_t const more = more_holds.load(std::memory_order_relaxed);
    if (more == 0xFFFFFFFF) {
        return fail(error_no_system_resources);
    }
    more_holds.store(more + 1, std::memory_order_relaxed);
    return true;
}

// Releases the mutex when a thread may sleep. Once the mutex is free, another thread may close its
// handle: from then on only the slot's state may be read, and its tag has to be checked.
void free_and_wake(handle_slot & slot, std::uint64_t now)
{
    uninterrupted const guard; // between the two steps no other thread would wake the sleeper
    bool const reserve = mutex_room_of(slot).kept_out.load(std::memory_order_relaxed) != 0;
    std::uint64_t freed;
    do {
        freed = with_word(now, reserve ? word_of(now) & waiters_flag : 0);
    } while (!slot.state.compare_exchange_weak(now, freed, std::memory_order_release,
                                               std::memory_order_relaxed));
    count_hold(one_hold_less);
    if ((word_of(now) & waiters_flag) != 0 && wake_address(address_of_word(slot), 1, false) == 0
        && reserve) {
        slot.state.compare_exchange_strong(freed, with_word(freed, 0), std::memory_order_relaxed);
    }
}

void abandon(handle_slot & slot, std::uint32_t self)
{
    std::uint64_t state = slot.state.load(std::memory_order_relaxed);
    for (;;) {
        auto const kind = static_cast<handle_kind>(tag_of(state) & 15);
        if (!is_mine(state, self)
            || (kind != handle_kind::mutex && kind != handle_kind::closed_mutex)) {
            return;
        }
        std::uint32_t const flag = word_of(state) & waiters_flag;
        if (slot.state.compare_exchange_weak(state, with_word(state, owner_died | flag),
                                             std::memory_order_release,
                                             std::memory_order_relaxed)) {
            if (flag != 0) {
                wake_address(address_of_word(slot), 1, false);
            }
            return;
        }
    }
}

} // namespace

void * create_unnamed_mutex(bool initially_owned) noexcept
{
    std::uint32_t const self = initially_owned ? owner_number() : 0;
    if (initially_owned && self == 0) {
        return nullptr;
    }
    uninterrupted const guard;
    handle_slot * const slot = take_slot();
    if (slot == nullptr) {
        return nullptr;
    }
    if (initially_owned) {
        count_hold(1);
    }
    return publish(*slot, handle_kind::mutex, self, mutex_all_access);
}

std::uint32_t wait_for_unnamed_mutex(handle_slot & slot, void * handle,
                                     std::uint32_t milliseconds) noexcept
{
    std::uint32_t const self = owner_number();
    if (self == 0) {
        return wait_failed;
    }
    std::uint64_t const state = slot.state.load(std::memory_order_acquire);
    if (is_alive(state, handle) && is_mine(state, self)) {
        return hold_again(slot) ? wait_object_0 : wait_failed;
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
        std::uint32_t const result = wait_for_owner(unnamed_mutex(slot, self), until);
        drop_pin(slot);
        if (result != wait_stopped) {
            return result;
        }
    }
}

bool release_unnamed_mutex(handle_slot & slot, void * handle) noexcept
{
    std::uint64_t const state = slot.state.load(std::memory_order_relaxed);
    if (!is_alive(state, handle)) {
        return fail(error_invalid_handle);
    }
    std::uint32_t const self = owner_number();
    if (self == 0 || !is_mine(state, self)) {
        return fail(error_not_owner);
    }
    if (!give_back_mutex(slot, handle, self)) {
        atomic<std::uint32_t> & more_holds = mutex_room_of(slot).more_holds;
        if (std::uint32_t const more = more_holds.load(std::memory_order_relaxed); more != 0) {
            more_holds.store(more - 1, std::memory_order_relaxed);
        } else {
            free_and_wake(slot, state);
        }
    }
    return true;
}

bool close_unnamed_mutex(handle_slot & slot, void * handle) noexcept
{
    uninterrupted const guard;
    std::uint32_t word = 0;
    if (!retire(slot, handle, word, handle_kind::closed_mutex)) {
        return fail(error_invalid_handle);
    }
    // If no thread sleeps on it, no thread can observe any more that it is owned.
    std::uint32_t const self = owner_number();
    bool const unwatched = word_of(slot.references.load(std::memory_order_acquire)) == 1;
    if (unwatched && self != 0 && (word & thread_mask) == self) {
        count_hold(one_hold_less);
    }
    drop_pin(slot);
    return true;
}

void abandon_unnamed_mutexes(std::uint32_t self) noexcept
{
    for_each_slot([self](handle_slot & slot) { abandon(slot, self); });
}

void abandon_parents_mutex(handle_slot & slot) noexcept
{
    std::uint64_t const state = slot.state.load(std::memory_order_relaxed);
    if (has_owner(state)) {
        slot.state.store(with_word(state, owner_died), std::memory_order_relaxed);
    }
}

} // namespace zel::platform
