// SPDX-License-Identifier: MIT
#include "zel/platform/host/failure.h"
#include "zel/platform/host/fork_handlers.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/objects/named_handles_linux.h"
#include "zel/platform/objects/named_mutex_linux.h"
#include "zel/platform/objects/named_waitable_linux.h"
#include "zel/platform/objects/unnamed_mutex_linux.h"
#include "zel/platform/objects/unnamed_objects.h"
#include "zel/platform/waits/handles.h"
#include "zel/platform/waits/this_thread_linux.h"
#include "zel/platform/waits/uninterrupted.h"

// Creation and opening of kernel objects, and their renewal in the child of a fork.
namespace zel::platform {
namespace {

// In the child after a fork there are no waiters. Of the parent's threads only a copy of the
// forking one exists, and it owns no mutex.
void renew_slot(handle_slot & slot)
{
    std::uint64_t const references = slot.references.load(std::memory_order_relaxed);
    switch (static_cast<handle_kind>(tag_of(references) & 15)) {
    case handle_kind::auto_event:
    case handle_kind::manual_event:
    case handle_kind::semaphore:
        forget_waiters(slot);
        break;
    case handle_kind::mutex:
        abandon_parents_mutex(slot);
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
    forget_owners_of_closed_mutexes();
    for_each_slot(renew_slot);
}

constexpr fork_handlers around_forks{nullptr, nullptr, after_fork_in_child};

bool prepare_forks()
{
    return add_fork_handlers(fork_place::objects, around_forks) || fail(error_not_enough_memory);
}

bool is_empty(char const * name) { return name == nullptr || *name == '\0'; }

/// Common part of creations and openings: `find(memory, existed)` maps the object.
template <typename Find> void * make_named_handle(handle_kind kind, std::uint32_t access, Find find)
{
    if (!prepare_forks() || robust_list::own() == nullptr || !use_named_objects()) {
        return nullptr;
    }
    uninterrupted const guard;
    free_closed_mutexes();
    handle_slot * const slot = take_slot();
    if (slot == nullptr) {
        return nullptr;
    }
    bool existed = false;
    if (!find(memory_in(*slot), existed)) {
        free_slot(*slot);
        return nullptr;
    }
    if (kind == handle_kind::named_mutex && !settle_lane(*slot)) {
        release_named_object(*slot);
        free_slot(*slot);
        return nullptr;
    }
    void * const handle = publish(*slot, kind, 0, access);
    set_last_error(existed ? error_already_exists : error_success);
    return handle;
}

void * create_named(std::uint32_t access, char const * name, named_memory_content const & content)
{
    return make_named_handle(static_cast<handle_kind>(content.kind), access,
                             [&](named_memory & memory, bool & existed) {
                                 return create_named_memory(name, content, memory, existed);
                             });
}

void * open_named(handle_kind kind, std::size_t size, std::uint32_t access, char const * name)
{
    if (is_empty(name)) {
        return fail_with_null(error_invalid_parameter);
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

void * created(void * unnamed)
{
    if (unnamed != nullptr) {
        set_last_error(error_success);
    }
    return unnamed;
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

void * create_waitable(handle_kind unnamed, handle_kind named, std::uint32_t access,
                       char const * name, waitable_content const & content)
{
    if (!is_empty(name)) {
        return create_named(access, name,
                            {static_cast<std::uint32_t>(named), sizeof(named_waitable),
                             initialize_waitable, nullptr, &content});
    }
    return prepare_forks() ? created(create_unnamed(unnamed, content.initial, content.maximum))
                           : nullptr;
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
        return fail_with_null(error_invalid_parameter);
    }
    return create_waitable(
        handle_kind::semaphore, handle_kind::named_semaphore, semaphore_all_access, name,
        {static_cast<std::uint32_t>(initial), static_cast<std::uint32_t>(maximum), false});
}

void * create_mutex(bool initially_owned, char const * name) noexcept
{
    if (initially_owned && owner_number() == 0) {
        return nullptr;
    }
    if (!is_empty(name)) {
        return create_named(mutex_all_access, name,
                            {static_cast<std::uint32_t>(handle_kind::named_mutex),
                             sizeof(mutex_lanes), initialize_named_mutex, withdraw_named_mutex,
                             &initially_owned});
    }
    return prepare_forks() ? created(create_unnamed_mutex(initially_owned)) : nullptr;
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
    return open_named(handle_kind::named_mutex, sizeof(mutex_lanes), access, name);
}

} // namespace zel::platform
