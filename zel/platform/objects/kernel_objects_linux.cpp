// SPDX-License-Identifier: MIT
#include "zel/platform/kernel_objects.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/objects/named_handles_linux.h"
#include "zel/platform/objects/named_mutex_linux.h"
#include "zel/platform/objects/named_waitable_linux.h"
#include "zel/platform/objects/unnamed_mutex_linux.h"
#include "zel/platform/objects/unnamed_objects.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/handles.h"
#include "zel/platform/waits/uninterrupted.h"

// The public functions on handles of all kinds. Each switches once on the kind of the handle. It
// tries the fast path, one exchange, and tail-calls the slow path of that kind, which is not
// inlined. So the public function spills no registers; an exchange would wait for those stores.
//
// The fast paths take no pin: no thread may close a handle that another one is using, and with a
// stale handle the exchange fails, because it compares the tag. The slot's room is read only after
// the state has shown that the handle is alive.
namespace zel::platform {
namespace {

/// Drops a reference to an object of any kind but a mutex. The last one frees the slot, and for a
/// named object also releases its name and mapping.
void drop(handle_slot & slot, bool is_named)
{
    if (unpin(slot)) {
        if (is_named) {
            release_named_object(slot);
        }
        free_slot(slot);
    }
}

/// Access to a named event or semaphore: checks the handle and its rights, and holds a pin, so that
/// the memory stays mapped.
class named_access {
public:
    named_access(handle_slot & slot, void * handle, std::uint32_t right) noexcept
        : slot_(slot)
        , pinned_(pin(slot, handle))
        , allowed_(pinned_ && (slot.access.load(std::memory_order_relaxed) & right) == right
                   && use_named_objects())
    {
        if (!pinned_) {
            set_last_error(error_invalid_handle);
        } else if ((slot.access.load(std::memory_order_relaxed) & right) != right) {
            set_last_error(error_access_denied);
        }
    }
    ~named_access()
    {
        if (pinned_) {
            drop(slot_, true);
        }
    }
    named_access(named_access const &) = delete;
    named_access & operator=(named_access const &) = delete;

    explicit operator bool() const noexcept { return allowed_; }
    named_waitable & operator*() const noexcept
    {
        return *static_cast<named_waitable *>(memory_in(slot_).block);
    }

private:
    uninterrupted const guard_;
    handle_slot & slot_;
    bool const pinned_;
    bool const allowed_;
};

[[gnu::noinline]] std::uint32_t wait_for_named(handle_slot & slot, void * handle,
                                               std::uint32_t milliseconds)
{
    std::int64_t const until = milliseconds == 0 ? 0 : moment_after(milliseconds);
    for (;;) {
        // A thread that is told to stop does so where `object` is destroyed, after the pin was
        // dropped: it may be terminated there.
        named_access const object(slot, handle, synchronize);
        std::uint32_t const result = object ? wait_for(*object, until) : wait_failed;
        if (result != wait_stopped) {
            return result;
        }
    }
}

[[gnu::noinline]] bool change_named_event(handle_slot & slot, void * handle,
                                          bool (*change)(named_waitable &) noexcept)
{
    named_access const event(slot, handle, event_modify_state);
    return event && change(*event);
}

[[gnu::noinline]] bool release_named_semaphore(handle_slot & slot, void * handle,
                                               std::int32_t count, std::int32_t * previous)
{
    named_access const semaphore(slot, handle, semaphore_modify_state);
    return semaphore
        && (count > 0 ? release(*semaphore, static_cast<std::uint32_t>(count), previous)
                      : fail(error_invalid_parameter));
}

[[gnu::noinline]] bool close_object(handle_slot & slot, void * handle, bool is_named)
{
    uninterrupted const guard;
    std::uint32_t word = 0;
    if (!retire(slot, handle, word)) {
        return fail(error_invalid_handle);
    }
    drop(slot, is_named);
    return true;
}

[[gnu::noinline]] bool refuse() { return fail(error_invalid_handle); }

[[gnu::noinline]] std::uint32_t refuse_wait()
{
    set_last_error(error_invalid_handle);
    return wait_failed;
}

[[gnu::noinline]] std::uint32_t wait_for_end_of_thread(void * handle, std::uint32_t milliseconds)
{
    return wait_for_thread(handle, milliseconds == 0 ? 0 : moment_after(milliseconds));
}

bool is_alive_now(handle_slot & slot, void * handle, std::uint64_t & state)
{
    state = slot.state.load(std::memory_order_acquire);
    return is_alive(state, handle);
}

[[gnu::noinline]] std::uint32_t take_named_mutex(handle_slot & slot, void * handle,
                                                 std::uint32_t milliseconds)
{
    std::uint64_t state;
    if (!is_alive_now(slot, handle, state) || !take_free_named_mutex(slot)) {
        return wait_for_named_mutex(slot, handle, milliseconds);
    }
    return lane_in(slot).crossed.load() == 0 ? wait_object_0
                                             : wait_across(slot, handle, milliseconds);
}

[[gnu::noinline]] bool give_back_named_mutex(handle_slot & slot, void * handle)
{
    std::uint64_t state;
    return (is_alive_now(slot, handle, state) && platform::give_back_named_mutex(slot))
        || release_named_mutex(slot, handle);
}

} // namespace

std::uint32_t wait_for_single_object(void * handle, std::uint32_t milliseconds) noexcept
{
    handle_slot * const slot = slot_of(handle);
    if (slot == nullptr) {
        return refuse_wait();
    }
    switch (kind_of(handle)) {
    case handle_kind::auto_event:
    case handle_kind::semaphore:
        if (take_free_unit(*slot, handle, slot->state.load(std::memory_order_acquire))) {
            return wait_object_0;
        }
        return wait_for_unnamed(*slot, handle, milliseconds);
    case handle_kind::manual_event:
        return wait_for_unnamed(*slot, handle, milliseconds);
    case handle_kind::mutex:
        if (take_free_mutex(*slot, handle, this_thread.owner_number)) {
            return wait_object_0;
        }
        return wait_for_unnamed_mutex(*slot, handle, milliseconds);
    case handle_kind::named_mutex:
        return take_named_mutex(*slot, handle, milliseconds);
    case handle_kind::named_event:
    case handle_kind::named_semaphore:
        return wait_for_named(*slot, handle, milliseconds);
    case handle_kind::thread:
        return wait_for_end_of_thread(handle, milliseconds);
    default:
        return refuse_wait();
    }
}

bool set_event(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
        return put_down(*slot, handle, 1, 1) || set_unnamed_event(*slot, handle);
    case handle_kind::named_event:
        return change_named_event(*slot, handle, set);
    default:
        return refuse();
    }
}

bool reset_event(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
        return reset_unnamed_event(*slot, handle);
    case handle_kind::named_event:
        return change_named_event(*slot, handle, reset);
    default:
        return refuse();
    }
}

bool pulse_event(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
        return pulse_unnamed_event(*slot, handle);
    case handle_kind::named_event:
        return change_named_event(*slot, handle, pulse);
    default:
        return refuse();
    }
}

bool release_mutex(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::mutex:
        return give_back_mutex(*slot, handle, this_thread.owner_number)
            || release_unnamed_mutex(*slot, handle);
    case handle_kind::named_mutex:
        return give_back_named_mutex(*slot, handle);
    default:
        return refuse();
    }
}

bool release_semaphore(void * handle, std::int32_t count, std::int32_t * previous) noexcept
{
    handle_slot * const slot = slot_of(handle);
    auto const units = static_cast<std::uint32_t>(count);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::semaphore:
        if (previous == nullptr && count > 0 && put_down(*slot, handle, units, maximum_of(*slot)))
            [[likely]] {
            return true;
        }
        return count > 0 ? release_unnamed_semaphore(*slot, handle, units, previous)
                         : fail(error_invalid_parameter);
    case handle_kind::named_semaphore:
        return release_named_semaphore(*slot, handle, count, previous);
    default:
        return refuse();
    }
}

bool close_handle(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
    case handle_kind::semaphore:
        return close_object(*slot, handle, false);
    case handle_kind::named_event:
    case handle_kind::named_semaphore:
        return close_object(*slot, handle, true);
    case handle_kind::mutex:
        return close_unnamed_mutex(*slot, handle);
    case handle_kind::named_mutex:
        return close_named_mutex(*slot, handle);
    case handle_kind::thread:
        return close_thread(handle);
    default:
        return refuse();
    }
}

} // namespace zel::platform
