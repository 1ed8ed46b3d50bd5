// SPDX-License-Identifier: MIT
#include "zel/platform/message_queue.h"

#include "zel/base/atomic.h"
#include "zel/platform/host/failure.h"
#include "zel/platform/host/fork_handlers.h"
#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/queues/message_store.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <new>
#include <optional>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace zel::platform {
namespace {

struct window {
    window_procedure procedure; // null: the place is free
    std::uint32_t serial; // of a free place: the next free one, counted from 1
    bool unicode;
};

constexpr std::uint32_t window_limit = 65'535; // of one thread: an index has 16 bits

// What a window handle says: the window's queue and its place there, and a serial number by which
// a later window at that place is told apart. No handle is null or all ones.
struct window_name {
    std::uint16_t index;
    std::uint16_t queue;
    std::uint32_t serial; // never 0
};
static_assert(sizeof(window_name) == sizeof(window_handle));

// The queue of one thread. It stays where it is for ever, so that a sender may lock it without
// knowing whether the thread still lives; when it does not, the next new thread gets it.
//
// Only the owner changes the windows: it reads them without the lock, others with it. All the rest
// but the atomic word is behind the lock.
struct alignas(64) queue {
    brief_lock lock;
    // 1 while the owner sleeps, or is about to, until a message comes. Whoever makes it 0 wakes it.
    atomic<std::uint32_t> sleeping{0};
    message_store messages;
    bool fresh = false; // something came since the owner last looked
    bool quit = false;
    bool readable = false; // what the descriptor is
    int exit_code = 0;
    int descriptor = -1; // an eventfd once the owner has asked for it
    std::uint16_t number = 0; // of the queue itself; fixed
    std::uint32_t window_count = 0; // places in use or free again
    std::uint32_t window_room = 0;
    std::uint32_t free_window = 0; // counted from 1
    std::uint32_t next_serial = 1; // goes on from one owner to the next
    window * windows = nullptr;
};

// Queues in groups that are made as they are needed and then kept; the first one costs nothing.
// The ids of the owners stand apart, for a search to pass quickly.
struct queue_group {
    static constexpr std::size_t size = 64;

    // The queues get the numbers from `first` on.
    explicit constexpr queue_group(std::size_t first) noexcept
    {
        for (queue & it : queues) {
            it.number = static_cast<std::uint16_t>(first++);
        }
    }

    atomic<std::uint32_t> owners[size]{}; // 0: free
    queue queues[size];
};

constexpr std::size_t group_limit = 65'536 / queue_group::size; // a queue's number has 16 bits

constinit queue_group first_group{0};
constinit atomic<queue_group *> groups[group_limit]{&first_group};
constinit brief_lock groups_lock; // whoever makes a group or takes a free queue

constinit thread_local queue * current = nullptr;

// A lock that is held where the thread can neither be suspended nor be terminated.
class held {
public:
    explicit held(brief_lock & lock) noexcept
        : lock_(lock)
    {
        lock_.lock();
    }
    ~held() { lock_.unlock(); }
    held(held const &) = delete;
    held & operator=(held const &) = delete;

private:
    uninterrupted guard_;
    brief_lock & lock_;
};

template <typename Visit> void for_each_queue(Visit visit)
{
    for (auto & entry : groups) {
        queue_group * const group = entry.load(std::memory_order_acquire);
        if (group == nullptr) {
            break;
        }
        for (std::size_t i = 0; i < queue_group::size; ++i) {
            visit(group->queues[i], group->owners[i]);
        }
    }
}

atomic<std::uint32_t> & owner_of(queue const & it) noexcept
{
    return groups[it.number / queue_group::size]
        .load(std::memory_order_acquire)
        ->owners[it.number % queue_group::size];
}

window_name name_of(window_handle handle) noexcept { return std::bit_cast<window_name>(handle); }

queue * queue_of(window_name name) noexcept
{
    queue_group * const group
        = groups[name.queue / queue_group::size].load(std::memory_order_acquire);
    return group == nullptr ? nullptr : &group->queues[name.queue % queue_group::size];
}

// Inside the queue's lock, or on its owner's thread.
window * window_in(queue & owner, window_name name) noexcept
{
    if (name.queue != owner.number || name.index >= owner.window_count) {
        return nullptr;
    }
    window & found = owner.windows[name.index];
    return found.procedure != nullptr && found.serial == name.serial ? &found : nullptr;
}

// What a handle leads to, for any thread.
std::optional<window> find_window(window_handle handle) noexcept
{
    window_name const name = name_of(handle);
    queue * const owner = queue_of(name);
    if (owner == nullptr) {
        return std::nullopt;
    }
    held const lock(owner->lock);
    window const * const found = window_in(*owner, name);
    return found == nullptr ? std::nullopt : std::optional<window>(*found);
}

// For a handle that is no window of the calling thread.
void refuse(window_handle handle) noexcept
{
    set_last_error(find_window(handle) ? error_access_denied : error_invalid_window_handle);
}

// Inside the lock: makes the descriptor what the queue is.
void update_descriptor(queue & it) noexcept
{
    bool const waiting = it.messages.size() != 0 || it.quit;
    if (it.descriptor < 0 || it.readable == waiting) {
        return;
    }
    // Neither can block: the counter goes from 0 to 1 and back.
    eventfd_t count = 0;
    int const result
        = waiting ? ::eventfd_write(it.descriptor, 1) : ::eventfd_read(it.descriptor, &count);
    if (result == 0) {
        it.readable = waiting;
    }
}

// Inside the lock, after something came. The caller wakes the owner if told to, behind the lock but
// before it can be stopped itself.
[[nodiscard]] bool announce(queue & it) noexcept
{
    it.fresh = true;
    update_descriptor(it);
    if (it.sleeping.load(std::memory_order_relaxed) == 0) {
        return false;
    }
    it.sleeping.store(0, std::memory_order_relaxed);
    return true;
}

// Inside the lock, or where nobody else can be.
void empty(queue & it) noexcept
{
    it.messages.clear();
    delete[] it.windows;
    it.windows = nullptr;
    it.window_count = 0;
    it.window_room = 0;
    it.free_window = 0;
    it.fresh = false;
    it.quit = false;
    it.readable = false;
    if (it.descriptor >= 0) {
        ::close(it.descriptor);
        it.descriptor = -1;
    }
}

// The teardown of a thread; of one that was terminated, on another thread.
void release(void * data)
{
    queue & it = *static_cast<queue *>(data);
    if (current == &it) {
        current = nullptr;
    }
    held const lock(it.lock);
    empty(it);
    it.sleeping.store(0, std::memory_order_relaxed);
    owner_of(it).store(0, std::memory_order_release);
}

// A fork waits until no thread is in the middle of a queue, so that the child finds them whole.
alignas(uninterrupted) constinit std::byte fork_guard[sizeof(uninterrupted)]{};

void before_fork() noexcept
{
    uninterrupted const guard;
    groups_lock.lock();
    ::new (static_cast<void *>(fork_guard)) uninterrupted; // of all forks one is here at a time
    for_each_queue([](queue & it, auto &) { it.lock.lock(); });
}

void leave_fork_guard()
{
    std::launder(reinterpret_cast<uninterrupted *>(fork_guard))->~uninterrupted();
}

void after_fork_in_parent() noexcept
{
    uninterrupted const guard;
    for_each_queue([](queue & it, auto &) { it.lock.unlock(); });
    leave_fork_guard();
    groups_lock.unlock();
}

// A copy of the parent's eventfd would be the parent's own: what one reads, the other misses.
void renew_descriptor(queue & it)
{
    int const renewed = ::eventfd(it.readable ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (renewed < 0 || ::dup3(renewed, it.descriptor, O_CLOEXEC) < 0) {
        ::close(it.descriptor);
        it.descriptor = -1;
    }
    if (renewed >= 0) {
        ::close(renewed);
    }
}

void after_fork_in_child() noexcept
{
    uninterrupted const guard;
    for_each_queue([](queue & it, atomic<std::uint32_t> & owner) {
        it.lock.reset();
        if (&it != current) {
            empty(it); // its thread is the parent's
            owner.store(0, std::memory_order_relaxed);
            return;
        }
        owner.store(static_cast<std::uint32_t>(::gettid()), std::memory_order_relaxed);
        if (it.descriptor >= 0) {
            renew_descriptor(it);
        }
    });
    leave_fork_guard();
    groups_lock.reset();
}

constexpr fork_handlers around_forks{before_fork, after_fork_in_parent, after_fork_in_child};

// Inside `groups_lock`. Finds a queue that is free, or was this thread's already: a destructor of
// the thread that ran after the teardown has made it.
queue * find_free_queue(std::uint32_t id) noexcept
{
    queue * free = nullptr;
    queue * again = nullptr;
    for_each_queue([&](queue & it, atomic<std::uint32_t> const & owner) {
        std::uint32_t const holder = owner.load(std::memory_order_acquire);
        free = free == nullptr && holder == 0 ? &it : free;
        again = holder == id ? &it : again;
    });
    return again == nullptr ? free : again;
}

// Inside `groups_lock`.
queue * make_group() noexcept
{
    auto * const place = std::find_if(std::begin(groups), std::end(groups), [](auto const & entry) {
        return entry.load(std::memory_order_relaxed) == nullptr;
    });
    if (place == std::end(groups)) {
        set_last_error(error_no_system_resources);
        return nullptr;
    }
    auto const index = static_cast<std::size_t>(place - std::begin(groups));
    auto * const made = new (std::nothrow) queue_group(index * queue_group::size);
    if (made == nullptr) {
        set_last_error(error_not_enough_memory);
        return nullptr;
    }
    place->store(made, std::memory_order_release);
    return made->queues;
}

queue * claim_queue() noexcept
{
    std::uint32_t const id = current_thread_id();
    held const lock(groups_lock);
    queue * it = find_free_queue(id);
    if (it == nullptr) {
        it = make_group();
    }
    if (it != nullptr) {
        held const inner(it->lock);
        empty(*it);
        owner_of(*it).store(id, std::memory_order_release);
    }
    return it;
}

// The calling thread's queue; null with the last error set.
queue * make_own_queue() noexcept
{
    if (!add_fork_handlers(fork_place::queues, around_forks)) {
        set_last_error(error_not_enough_memory);
        return nullptr;
    }
    uninterrupted const guard; // or the queue of a terminated thread stays taken
    queue * const it = claim_queue();
    if (it == nullptr) {
        return nullptr;
    }
    if (!set_thread_teardown(release, it)) {
        release(it);
        set_last_error(error_not_enough_memory);
        return nullptr;
    }
    current = it;
    return it;
}

queue * own_queue() noexcept { return current != nullptr ? current : make_own_queue(); }

std::uint32_t now_in_milliseconds() noexcept
{
    return static_cast<std::uint32_t>(monotonic_now() / 1'000'000);
}

// Posts if the receiver is still there, which shows inside the lock; `otherwise` is the error else.
template <typename Check>
bool post(queue & to, tagMSG const & message, Check is_there, error otherwise) noexcept
{
    uninterrupted const guard; // the wake belongs to the post
    bool wake = false;
    {
        held const lock(to.lock);
        if (!is_there()) {
            set_last_error(otherwise);
            return false;
        }
        if (to.messages.size() == message_limit) {
            set_last_error(error_not_enough_quota);
            return false;
        }
        if (!to.messages.push(message)) {
            set_last_error(error_not_enough_memory);
            return false;
        }
        wake = announce(to);
    }
    if (wake) {
        wake_address(to.sleeping, 1, false);
    }
    return true;
}

bool post_to_thread(queue & to, std::uint32_t thread_id, tagMSG const & message) noexcept
{
    auto const & owner = owner_of(to);
    return post(
        to, message, [&] { return owner.load(std::memory_order_relaxed) == thread_id; },
        error_invalid_thread_id);
}

// Inside the lock, on the owner's thread.
bool fetch(queue & from, message_filter const & filter, bool remove, tagMSG & message) noexcept
{
    from.fresh = false;
    if (!from.messages.fetch(filter, remove, message)) {
        if (!from.quit) {
            return false;
        }
        message = {nullptr, message_quit,          static_cast<std::uintptr_t>(from.exit_code),
                   0,       now_in_milliseconds(), {0, 0}};
        from.quit = !remove;
    }
    if (remove) {
        update_descriptor(from);
    }
    return true;
}

bool may_ask_for(queue & own, window_handle wanted) noexcept
{
    if (wanted == nullptr || wanted == thread_messages_only()
        || window_in(own, name_of(wanted)) != nullptr) {
        return true;
    }
    set_last_error(error_invalid_window_handle);
    return false;
}

int get_message(tagMSG & message, window_handle wanted, unsigned int first,
                unsigned int last) noexcept
{
    queue * const own = own_queue();
    if (own == nullptr || !may_ask_for(*own, wanted)) {
        return -1;
    }
    for (;;) {
        {
            held const lock(own->lock);
            if (fetch(*own, {wanted, first, last}, true, message)) {
                return message.message == message_quit ? 0 : 1;
            }
            own->sleeping.store(1, std::memory_order_relaxed);
        }
        while (own->sleeping.load(std::memory_order_relaxed) == 1) {
            wait_on_address(own->sleeping, 1, -1, false);
        }
    }
}

std::intptr_t dispatch_message(tagMSG const & message)
{
    if (message.hwnd == nullptr) {
        return 0;
    }
    queue * const own = current;
    window const * const found = own == nullptr ? nullptr : window_in(*own, name_of(message.hwnd));
    if (found != nullptr) {
        return found->procedure(message.hwnd, message.message, message.wParam, message.lParam);
    }
    refuse(message.hwnd);
    return 0;
}

} // namespace

window_handle create_window(window_procedure procedure, bool unicode) noexcept
{
    if (procedure == nullptr) {
        set_last_error(error_invalid_parameter);
        return nullptr;
    }
    queue * const own = own_queue();
    if (own == nullptr) {
        return nullptr;
    }
    held const lock(own->lock);
    if (own->free_window == 0 && own->window_count == own->window_room) {
        if (own->window_room == window_limit) {
            set_last_error(error_no_system_resources);
            return nullptr;
        }
        std::uint32_t const room = std::clamp(own->window_room * 2, 4U, window_limit);
        auto * const more = new (std::nothrow) window[room];
        if (more == nullptr) {
            set_last_error(error_not_enough_memory);
            return nullptr;
        }
        std::copy_n(own->windows, own->window_count, more);
        delete[] own->windows;
        own->windows = more;
        own->window_room = room;
    }
    std::uint32_t const index = own->free_window != 0 ? own->free_window - 1 : own->window_count++;
    window & made = own->windows[index];
    if (own->free_window != 0) {
        own->free_window = made.serial;
    }
    made = {procedure, own->next_serial, unicode};
    own->next_serial += own->next_serial == 0xFFFFFFFF ? 2U : 1U;
    return std::bit_cast<window_handle>(
        window_name{static_cast<std::uint16_t>(index), own->number, made.serial});
}

bool destroy_window(window_handle handle) noexcept
{
    window_name const name = name_of(handle);
    queue * const own = current;
    window * const found = own == nullptr ? nullptr : window_in(*own, name);
    if (found == nullptr) {
        refuse(handle);
        return false;
    }
    held const lock(own->lock);
    *found = {nullptr, own->free_window, false};
    own->free_window = name.index + 1U;
    own->messages.drop(handle);
    update_descriptor(*own);
    return true;
}

bool is_window_unicode(window_handle handle) noexcept
{
    // The owner alone changes its windows: it needs no lock to read them.
    queue * const own = current;
    if (window const * const found = own == nullptr ? nullptr : window_in(*own, name_of(handle));
        found != nullptr) {
        return found->unicode;
    }
    if (auto const found = find_window(handle)) {
        return found->unicode;
    }
    set_last_error(error_invalid_window_handle);
    return false;
}

bool post_message(window_handle handle, unsigned int message, std::uintptr_t wparam,
                  std::intptr_t lparam) noexcept
{
    tagMSG const posted{handle, message, wparam, lparam, now_in_milliseconds(), {0, 0}};
    if (handle == nullptr) {
        queue * const own = own_queue();
        return own != nullptr
            && post_to_thread(*own, owner_of(*own).load(std::memory_order_relaxed), posted);
    }
    window_name const name = name_of(handle);
    queue * const owner = queue_of(name);
    if (owner == nullptr) {
        set_last_error(error_invalid_window_handle);
        return false;
    }
    return post(
        *owner, posted, [&] { return window_in(*owner, name) != nullptr; },
        error_invalid_window_handle);
}

bool post_thread_message(std::uint32_t thread_id, unsigned int message, std::uintptr_t wparam,
                         std::intptr_t lparam) noexcept
{
    tagMSG const posted{nullptr, message, wparam, lparam, now_in_milliseconds(), {0, 0}};
    queue * to = nullptr;
    if (thread_id != 0) {
        for_each_queue([&](queue & it, atomic<std::uint32_t> const & owner) {
            to = owner.load(std::memory_order_acquire) == thread_id ? &it : to;
        });
    }
    if (to == nullptr) {
        if (thread_id == current_thread_id()) {
            return post_message(nullptr, message, wparam, lparam);
        }
        set_last_error(error_invalid_thread_id);
        return false;
    }
    return post_to_thread(*to, thread_id, posted);
}

void post_quit_message(int exit_code) noexcept
{
    queue * const own = own_queue();
    if (own == nullptr) {
        return;
    }
    held const lock(own->lock);
    own->quit = true;
    own->exit_code = exit_code;
    static_cast<void>(announce(*own)); // the owner, who sleeps for nothing here
}

bool peek_message(tagMSG & message, window_handle wanted, unsigned int first, unsigned int last,
                  unsigned int remove) noexcept
{
    queue * const own = own_queue();
    if (own == nullptr || !may_ask_for(*own, wanted)) {
        return false;
    }
    held const lock(own->lock);
    return fetch(*own, {wanted, first, last}, (remove & peek_remove) != 0, message);
}

int get_message_a(tagMSG & message, window_handle wanted, unsigned int first,
                  unsigned int last) noexcept
{
    return get_message(message, wanted, first, last);
}

int get_message_w(tagMSG & message, window_handle wanted, unsigned int first,
                  unsigned int last) noexcept
{
    return get_message(message, wanted, first, last);
}

bool translate_message(tagMSG const & message) noexcept
{
    // A key goes down or up, alone or with the menu key.
    return message.message == 0x0100 || message.message == 0x0101 || message.message == 0x0104
        || message.message == 0x0105;
}

std::intptr_t dispatch_message_a(tagMSG const & message) { return dispatch_message(message); }

std::intptr_t dispatch_message_w(tagMSG const & message) { return dispatch_message(message); }

std::uint32_t msg_wait_for_thread(void * thread, std::uint32_t milliseconds) noexcept
{
    queue * const own = own_queue();
    if (own == nullptr) {
        return wait_failed;
    }
    bool fresh = false;
    {
        held const lock(own->lock);
        fresh = own->fresh;
        own->sleeping.store(fresh ? 0 : 1, std::memory_order_relaxed);
    }
    // With a word that differs already, this only looks whether the thread has ended.
    std::uint32_t const result = wait_for_thread_or_change(thread, own->sleeping, 1, milliseconds);
    own->sleeping.store(0, std::memory_order_relaxed);
    return result;
}

int message_queue_descriptor() noexcept
{
    queue * const own = own_queue();
    if (own == nullptr) {
        return -1;
    }
    held const lock(own->lock);
    if (own->descriptor < 0) {
        own->descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (own->descriptor < 0) {
            set_last_error(error_from_errno(errno));
            return -1;
        }
        own->readable = false;
        update_descriptor(*own);
    }
    return own->descriptor;
}

} // namespace zel::platform
