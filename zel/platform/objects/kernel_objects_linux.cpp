// SPDX-License-Identifier: MIT
#include "zel/platform/kernel_objects.h"

#include "zel/platform/host/fork_handlers.h"
#include "zel/platform/last_error.h"
#include "zel/platform/objects/named_memory.h"
#include "zel/platform/objects/named_waitable_linux.h"
#include "zel/platform/objects/robust_mutex_linux.h"
#include "zel/platform/objects/unnamed_objects.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/handles.h"
#include <cstddef>

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

/// \name Objects that processes share
/// A handle's slot holds where this handle has the object mapped.
/// @{
struct named_mutex {
    atomic<std::uint64_t> state;
    std::byte unused[robust_word_distance - sizeof(std::uint64_t)];
    mutex_ownership ownership;
};
static_assert(offsetof(named_mutex, ownership) == robust_word_distance);

named_memory & memory_in(handle_slot & slot)
{
    static_assert(sizeof(named_memory) <= sizeof(handle_slot::room));
    void * const room = slot.room;
    return *static_cast<named_memory *>(room);
}

robust_mutex mutex_in(named_memory const & memory, std::uint64_t process)
{
    auto & object = *static_cast<named_mutex *>(memory.block);
    return {object.state, object.ownership, process};
}

robust_mutex mutex_in(named_memory const & memory) { return mutex_in(memory, process_mark()); }

named_waitable & waitable_in(handle_slot & slot)
{
    return *static_cast<named_waitable *>(memory_in(slot).block);
}
/// @}

/// \name Mutexes whose handle was closed while they were owned
/// The kernel follows the owner's list into the slot, or into the memory mapped for it, until the
/// owner releases the mutex or ends. Later creations look whether it has.
/// @{
constinit brief_lock leftovers_lock;
constinit std::uint32_t first_leftover = 0; // one more than the number of the slot, 0 for none

// Of a closed handle, whose rights nobody asks for any more.
enum leftover : std::uint32_t { leftover_unnamed, leftover_named };

bool is_needed(handle_slot & slot)
{
    robust_mutex const mutex = slot.access.load(std::memory_order_relaxed) == leftover_named
        ? mutex_in(memory_in(slot))
        : unnamed_mutex(slot);
    return mutex.is_on_a_list_here();
}

void free_mutex(handle_slot & slot)
{
    if (slot.access.load(std::memory_order_relaxed) == leftover_named) {
        release_named_memory(memory_in(slot));
    }
    free_slot(slot);
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
        if (is_needed(slot)) {
            keep_leftover(slot);
        } else {
            free_mutex(slot);
        }
    }
}
/// @}

/// Drops a reference. With the last one the object goes, or this process's part in it.
void drop(handle_slot & slot, handle_kind kind)
{
    if (!unpin(slot)) {
        return;
    }
    switch (kind) {
    case handle_kind::named_event:
    case handle_kind::named_semaphore:
        release_named_memory(memory_in(slot));
        break;
    case handle_kind::mutex:
    case handle_kind::named_mutex:
        slot.access.store(kind == handle_kind::mutex ? leftover_unnamed : leftover_named,
                          std::memory_order_relaxed);
        if (is_needed(slot)) {
            if (kind == handle_kind::named_mutex) {
                leave_named_memory(memory_in(slot)); // or the name stays as long as the owner
            }
            keep_leftover(slot);
        } else {
            free_mutex(slot);
        }
        return;
    default:
        break;
    }
    free_slot(slot);
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
        if (unnamed_mutex(slot).is_on_a_list_here()) {
            slot.state.store(with_word(slot.state.load(std::memory_order_relaxed), owner_died),
                             std::memory_order_relaxed);
        }
        break;
    case handle_kind::named_event:
    case handle_kind::named_mutex:
    case handle_kind::named_semaphore:
        break;
    default:
        return;
    }
    slot.references.store((references & ~word_mask) | 1, std::memory_order_relaxed);
}

void after_fork_in_child() noexcept
{
    this_thread.id = 0;
    if (robust_list * const list = robust_list::own()) {
        list->withdraw(); // the C library has emptied the list itself
    }
    known_process_mark.store(0, std::memory_order_relaxed);
    leftovers_lock.reset();
    for_each_slot(renew_slot);
    for (std::uint32_t number = first_leftover; number != 0;) {
        handle_slot & slot = handle_table.load(std::memory_order_relaxed)[number - 1];
        number = slot.next_free.load(std::memory_order_relaxed);
        slot.state.store(with_word(slot.state.load(std::memory_order_relaxed), 0),
                         std::memory_order_relaxed); // of a named one nobody looks there
    }
}

constexpr fork_handlers around_forks{nullptr, nullptr, after_fork_in_child};

bool prepare_forks()
{
    return add_fork_handlers(fork_place::objects, around_forks) || refuse(error_not_enough_memory);
}

bool is_empty(char const * name) { return name == nullptr || *name == '\0'; }

void * refuse_handle(std::uint32_t error)
{
    set_last_error(error);
    return nullptr;
}

/// What creations and openings have in common: `find(memory, existed)` maps the object.
template <typename Find> void * make_named_handle(handle_kind kind, std::uint32_t access, Find find)
{
    if (!prepare_forks() || robust_list::own() == nullptr) {
        return nullptr;
    }
    uninterrupted const guard;
    free_leftovers();
    handle_slot * const slot = take_slot();
    if (slot == nullptr) {
        return nullptr;
    }
    bool existed = false;
    if (!find(memory_in(*slot), existed)) {
        free_slot(*slot);
        return nullptr;
    }
    void * const handle = publish(*slot, kind, 0, access);
    set_last_error(existed ? error_already_exists : error_success);
    return handle;
}

struct waitable_content {
    std::uint32_t initial;
    std::uint32_t maximum;
    bool manual;
};

void initialize_waitable(void * block, void const * argument) noexcept
{
    auto const & content = *static_cast<waitable_content const *>(argument);
    initialize(*static_cast<named_waitable *>(block), content.initial, content.maximum,
               content.manual);
}

void * create_named_waitable(handle_kind kind, std::uint32_t access, char const * name,
                             waitable_content const & initial)
{
    return make_named_handle(kind, access, [&](named_memory & memory, bool & existed) {
        named_memory_content const content{static_cast<std::uint32_t>(kind), sizeof(named_waitable),
                                           initialize_waitable, &initial};
        return create_named_memory(name, content, memory, existed);
    });
}

// The creator has it before anybody else can find it.
void initialize_mutex(void * block, void const * initially_owned) noexcept
{
    if (*static_cast<bool const *>(initially_owned)) {
        auto & object = *static_cast<named_mutex *>(block);
        robust_mutex const mutex{object.state, object.ownership, process_mark()};
        std::uint64_t free = 0;
        mutex.take(*robust_list::own(), robust_mutex::thread_number(), free);
    }
}

void * open_named(handle_kind kind, std::size_t size, std::uint32_t access, char const * name)
{
    if (is_empty(name)) {
        return refuse_handle(error_invalid_parameter);
    }
    std::uint32_t const before = last_error();
    void * const handle = make_named_handle(kind, access, [&](named_memory & memory, bool &) {
        return open_named_memory(name, static_cast<std::uint32_t>(kind), size, memory);
    });
    if (handle != nullptr) {
        set_last_error(before);
    }
    return handle;
}

/// For operations on named events and semaphores: the handle is alive and has the right, and the
/// memory stays where it is meanwhile.
class named_access {
public:
    named_access(handle_slot & slot, void * handle, std::uint32_t right) noexcept
        : slot_(slot)
        , kind_(kind_of(handle))
        , pinned_(pin(slot, handle))
        , allowed_(pinned_ && (slot.access.load(std::memory_order_relaxed) & right) == right)
    {
        if (!allowed_) {
            set_last_error(pinned_ ? error_access_denied : error_invalid_handle);
        }
    }
    ~named_access()
    {
        if (pinned_) {
            drop(slot_, kind_);
        }
    }
    named_access(named_access const &) = delete;
    named_access & operator=(named_access const &) = delete;

    explicit operator bool() const noexcept { return allowed_; }
    named_waitable & operator*() const noexcept { return waitable_in(slot_); }

private:
    uninterrupted const guard_;
    handle_slot & slot_;
    handle_kind const kind_;
    bool const pinned_;
    bool const allowed_;
};

std::int64_t moment_or_test(std::uint32_t milliseconds)
{
    return milliseconds == 0 ? 0 : moment_after(milliseconds);
}

std::uint32_t wait_for_named(handle_slot & slot, void * handle, std::uint32_t milliseconds)
{
    std::int64_t const until = moment_or_test(milliseconds);
    for (;;) {
        // A thread that is told to stop does so where `object` ends, without the pin: it may be
        // terminated there.
        named_access const object(slot, handle, synchronize);
        std::uint32_t const result = object ? wait_for(*object, until) : wait_failed;
        if (result != wait_stopped) {
            return result;
        }
    }
}

std::uint32_t wait_for_mutex(handle_slot & slot, void * handle, robust_mutex mutex,
                             std::uint32_t milliseconds)
{
    std::int64_t const until = moment_or_test(milliseconds);
    for (;;) {
        uninterrupted const guard; // stops at its end, as above
        if (!pin(slot, handle)) {
            return refuse_wait(error_invalid_handle);
        }
        std::uint32_t const result = mutex.wait(*robust_list::own(), until);
        drop(slot, kind_of(handle));
        if (result != wait_stopped) {
            return result;
        }
    }
}

/// The quickest way to a free mutex.
/// \returns false when nothing was done: `take_mutex` sees to it.
[[gnu::always_inline]] inline bool take_free_mutex(robust_mutex const & mutex, std::uint64_t state)
{
    robust_list * const list = robust_list::own_if_known();
    std::uint32_t const self = this_thread.id;
    return word_of(state) == 0 && list != nullptr && self != 0 && mutex.take(*list, self, state);
}

// What is no more than one exchange is done without a pin: nobody closes a handle that another
// thread is using. The slot is the handle's, as `state` tells.
std::uint32_t take_mutex(handle_slot & slot, void * handle, robust_mutex const & mutex,
                         std::uint64_t state, std::uint32_t milliseconds)
{
    robust_list * const list = robust_list::own();
    if (list == nullptr) {
        return wait_failed;
    }
    std::uint32_t const self = robust_mutex::thread_number();
    if (word_of(state) == 0 && mutex.take(*list, self, state)) {
        return wait_object_0;
    }
    if (mutex.is_mine(self, word_of(state))) {
        return mutex.take_again() ? wait_object_0 : wait_failed;
    }
    return wait_for_mutex(slot, handle, mutex, milliseconds);
}

std::uint32_t take_unnamed_mutex(handle_slot & slot, void * handle, std::uint32_t milliseconds)
{
    std::uint64_t const state = slot.state.load(std::memory_order_acquire);
    return is_alive(state, handle)
        ? take_mutex(slot, handle, unnamed_mutex(slot), state, milliseconds)
        : refuse_wait(error_invalid_handle);
}

std::uint32_t take_named_mutex(handle_slot & slot, void * handle, std::uint32_t milliseconds)
{
    if (!is_alive(slot.state.load(std::memory_order_acquire), handle)) {
        return refuse_wait(error_invalid_handle);
    }
    if ((slot.access.load(std::memory_order_relaxed) & synchronize) == 0) {
        return refuse_wait(error_access_denied);
    }
    robust_mutex const mutex = mutex_in(memory_in(slot));
    return take_mutex(slot, handle, mutex, mutex.state.load(std::memory_order_acquire),
                      milliseconds);
}

bool release_any_mutex(robust_mutex const & mutex, std::uint64_t state)
{
    return mutex.is_mine(robust_mutex::thread_number(), word_of(state))
        ? mutex.give_back(*robust_list::own(), state)
        : refuse(error_not_owner);
}

// An owner that closes the only handle of an unnamed mutex can never release it. If nobody waits
// either, nobody can tell: it goes at once.
void leave_mutex_behind(handle_slot & slot, std::uint32_t word)
{
    robust_mutex const mutex = unnamed_mutex(slot);
    bool const unwatched = word_of(slot.references.load(std::memory_order_acquire)) == 1;
    if (unwatched && mutex.is_mine(robust_mutex::thread_number(), word)) {
        mutex.ownership.more_holds.store(0, std::memory_order_relaxed);
        mutex.give_back(*robust_list::own(), slot.state.load(std::memory_order_relaxed));
    }
}

/// \name The whole of what the functions of the same names do
/// Those try what takes one exchange and call nothing but these, as their last step. So they save
/// no register: an exchange waits for all stores before it.
/// @{
[[gnu::noinline]] std::uint32_t wait_at_length(void * handle, std::uint32_t milliseconds)
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
    case handle_kind::semaphore:
        return wait_for_unnamed(*slot, handle, milliseconds);
    case handle_kind::mutex:
        return take_unnamed_mutex(*slot, handle, milliseconds);
    case handle_kind::named_mutex:
        return take_named_mutex(*slot, handle, milliseconds);
    case handle_kind::named_event:
    case handle_kind::named_semaphore:
        return wait_for_named(*slot, handle, milliseconds);
    case handle_kind::thread:
        return wait_for_thread(handle, moment_or_test(milliseconds));
    default:
        return refuse_wait(error_invalid_handle);
    }
}

[[gnu::noinline]] bool set_event_at_length(void * handle)
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
        return set_unnamed_event(*slot, handle);
    case handle_kind::named_event: {
        named_access const event(*slot, handle, event_modify_state);
        return event && set(*event);
    }
    default:
        return refuse(error_invalid_handle);
    }
}

[[gnu::noinline]] bool release_mutex_at_length(void * handle)
{
    handle_slot * const slot = slot_of(handle);
    std::uint64_t const state = slot == nullptr ? 0 : slot->state.load(std::memory_order_acquire);
    if (!is_alive(state, handle)) {
        return refuse(error_invalid_handle);
    }
    switch (kind_of(handle)) {
    case handle_kind::mutex:
        return release_any_mutex(unnamed_mutex(*slot), state);
    case handle_kind::named_mutex: {
        robust_mutex const mutex = mutex_in(memory_in(*slot));
        return release_any_mutex(mutex, mutex.state.load(std::memory_order_relaxed));
    }
    default:
        return refuse(error_invalid_handle);
    }
}

[[gnu::noinline]] bool release_semaphore_at_length(void * handle, std::int32_t count,
                                                   std::int32_t * previous)
{
    handle_slot * const slot = slot_of(handle);
    auto const units = static_cast<std::uint32_t>(count);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::semaphore:
        return count > 0 ? release_unnamed_semaphore(*slot, handle, units, previous)
                         : refuse(error_invalid_parameter);
    case handle_kind::named_semaphore: {
        named_access const semaphore(*slot, handle, semaphore_modify_state);
        return semaphore
            && (count > 0 ? release(*semaphore, units, previous) : refuse(error_invalid_parameter));
    }
    default:
        return refuse(error_invalid_handle);
    }
}
/// @}

void * create_waitable(handle_kind unnamed, handle_kind named, std::uint32_t access,
                       char const * name, waitable_content const & content)
{
    if (!is_empty(name)) {
        return create_named_waitable(named, access, name, content);
    }
    if (!prepare_forks()) {
        return nullptr;
    }
    void * const handle = create_unnamed(unnamed, content.initial, content.maximum);
    if (handle != nullptr) {
        set_last_error(error_success);
    }
    return handle;
}

} // namespace

void * create_event(bool manual_reset, bool initially_set, char const * name) noexcept
{
    return create_waitable(manual_reset ? handle_kind::manual_event : handle_kind::auto_event,
                           handle_kind::named_event, event_all_access, name,
                           {initially_set ? 1U : 0U, 1, manual_reset});
}

void * create_semaphore(std::int32_t initial, std::int32_t maximum, char const * name) noexcept
{
    if (maximum <= 0 || initial < 0 || initial > maximum) {
        return refuse_handle(error_invalid_parameter);
    }
    return create_waitable(
        handle_kind::semaphore, handle_kind::named_semaphore, semaphore_all_access, name,
        {static_cast<std::uint32_t>(initial), static_cast<std::uint32_t>(maximum), false});
}

void * create_mutex(bool initially_owned, char const * name) noexcept
{
    if (!is_empty(name)) {
        return make_named_handle(handle_kind::named_mutex, mutex_all_access,
                                 [&](named_memory & memory, bool & existed) {
                                     named_memory_content const content{
                                         static_cast<std::uint32_t>(handle_kind::named_mutex),
                                         sizeof(named_mutex), initialize_mutex, &initially_owned};
                                     return create_named_memory(name, content, memory, existed);
                                 });
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
        take_unnamed_mutex(*slot, handle, 0);
    }
    set_last_error(error_success);
    return handle;
}

void * open_event(std::uint32_t access, bool, char const * name) noexcept
{
    return open_named(handle_kind::named_event, sizeof(named_waitable), access, name);
}

void * open_semaphore(std::uint32_t access, bool, char const * name) noexcept
{
    return open_named(handle_kind::named_semaphore, sizeof(named_waitable), access, name);
}

void * open_mutex(std::uint32_t access, bool, char const * name) noexcept
{
    return open_named(handle_kind::named_mutex, sizeof(named_mutex), access, name);
}

std::uint32_t wait_for_single_object(void * handle, std::uint32_t milliseconds) noexcept
{
    if (handle_slot * const slot = slot_of(handle)) {
        std::uint64_t const state = slot->state.load(std::memory_order_acquire);
        switch (kind_of(handle)) {
        case handle_kind::auto_event:
        case handle_kind::semaphore:
            if (take_free_unit(*slot, handle, state)) {
                return wait_object_0;
            }
            break;
        case handle_kind::mutex:
            if (is_alive(state, handle) && take_free_mutex(unnamed_mutex(*slot), state)) {
                return wait_object_0;
            }
            break;
        case handle_kind::named_mutex:
            if (std::uint64_t const process = known_process_mark.load(std::memory_order_relaxed);
                process != 0 && is_alive(state, handle)
                && (slot->access.load(std::memory_order_relaxed) & synchronize) != 0) {
                robust_mutex const mutex = mutex_in(memory_in(*slot), process);
                if (take_free_mutex(mutex, mutex.state.load(std::memory_order_acquire))) {
                    return wait_object_0;
                }
            }
            break;
        default:
            break;
        }
    }
    return wait_at_length(handle, milliseconds);
}

bool set_event(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    bool const is_unnamed = kind_of(handle) == handle_kind::auto_event
        || kind_of(handle) == handle_kind::manual_event;
    return (slot != nullptr && is_unnamed && put_down(*slot, handle, 1, 1))
        || set_event_at_length(handle);
}

bool reset_event(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    switch (slot == nullptr ? handle_kind::none : kind_of(handle)) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
        return reset_unnamed_event(*slot, handle);
    case handle_kind::named_event: {
        named_access const event(*slot, handle, event_modify_state);
        return event && reset(*event);
    }
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
    case handle_kind::named_event: {
        named_access const event(*slot, handle, event_modify_state);
        return event && pulse(*event);
    }
    default:
        return refuse(error_invalid_handle);
    }
}

bool release_mutex(void * handle) noexcept
{
    handle_slot * const slot = slot_of(handle);
    robust_list * const list = robust_list::own_if_known();
    std::uint32_t const self = this_thread.id;
    std::uint64_t const process = known_process_mark.load(std::memory_order_relaxed);
    if (slot != nullptr && list != nullptr && self != 0) {
        std::uint64_t const state = slot->state.load(std::memory_order_acquire);
        if (is_alive(state, handle) && kind_of(handle) == handle_kind::mutex) {
            robust_mutex const mutex = unnamed_mutex(*slot);
            if (mutex.is_mine(self, word_of(state))) {
                return mutex.give_back(*list, state);
            }
        } else if (is_alive(state, handle) && kind_of(handle) == handle_kind::named_mutex
                   && process != 0) {
            robust_mutex const mutex = mutex_in(memory_in(*slot), process);
            std::uint64_t const now = mutex.state.load(std::memory_order_relaxed);
            if (mutex.is_mine(self, word_of(now))) {
                return mutex.give_back(*list, now);
            }
        }
    }
    return release_mutex_at_length(handle);
}

bool release_semaphore(void * handle, std::int32_t count, std::int32_t * previous) noexcept
{
    handle_slot * const slot = slot_of(handle);
    if (previous == nullptr && count > 0) [[likely]] {
        if (slot != nullptr && kind_of(handle) == handle_kind::semaphore
            && put_down(*slot, handle, static_cast<std::uint32_t>(count), maximum_of(*slot))) {
            return true;
        }
    }
    return release_semaphore_at_length(handle, count, previous);
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
    if (kind_of(handle) == handle_kind::mutex) {
        leave_mutex_behind(*slot, word);
    }
    drop(*slot, kind_of(handle));
    return true;
}

} // namespace zel::platform
