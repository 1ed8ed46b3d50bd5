// SPDX-License-Identifier: MIT
#include "zel/platform/host/failure.h"
#include "zel/platform/host/fork_handlers.h"
#include "zel/platform/last_error.h"
#include "zel/platform/queues/queue.h"
#include <algorithm>
#include <cstddef>
#include <iterator>
#include <new>

// The table of all queues: which thread owns which queue.
namespace zel::platform {

constinit thread_local queue * current_queue = nullptr;

namespace {

// Queues are allocated in groups when they are needed, and never freed; the first group is static.
// The ids of the owners are stored separately, so that a search reads little memory.
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

// The release that stores a group or an owner pairs with the acquire of a search. What a search has
// found is checked again with the queue's lock held.
constinit queue_group first_group{0};
constinit atomic<queue_group *> groups[group_limit]{&first_group};
constinit brief_lock groups_lock; // held to make a group or to take a free queue

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

queue & queue_numbered(std::size_t number) noexcept
{
    return groups[number / queue_group::size]
        .load(std::memory_order_acquire)
        ->queues[number % queue_group::size];
}

// Call it with the lock held, or where no other thread can access the queue.
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
    close_descriptor(it);
}

// The argument of a thread's teardown: the queue and the number of its claim. A terminated thread's
// teardown runs on another thread, possibly after a new thread with the same number has claimed the
// queue.
void * name_of_claim(queue const & it) noexcept
{
    return reinterpret_cast<void *>(it.claims << 16 | it.number);
}

void release(void * data)
{
    auto const claim = reinterpret_cast<std::uintptr_t>(data);
    queue & it = queue_numbered(claim & 0xFFFF);
    held const lock(it.lock);
    if (it.claims != claim >> 16) {
        return;
    }
    if (current_queue == &it) {
        current_queue = nullptr;
    }
    empty(it);
    it.sleeping.store(0, std::memory_order_relaxed);
    owner_of(it).store(0, std::memory_order_release);
}

// A fork waits until no thread is changing a queue, so that the child finds all queues consistent.
alignas(uninterrupted) constinit std::byte fork_guard[sizeof(uninterrupted)]{};

void before_fork() noexcept
{
    uninterrupted const guard;
    groups_lock.lock();
    ::new (static_cast<void *>(fork_guard)) uninterrupted; // groups_lock: one fork at a time
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

void after_fork_in_child() noexcept
{
    uninterrupted const guard;
    for_each_queue([](queue & it, atomic<std::uint32_t> & owner) {
        it.lock.reset();
        if (&it != current_queue) {
            empty(it); // its thread exists only in the parent
            owner.store(0, std::memory_order_relaxed);
            return;
        }
        owner.store(current_thread_id(), std::memory_order_relaxed);
        renew_descriptor(it);
    });
    leave_fork_guard();
    groups_lock.reset();
}

constexpr fork_handlers around_forks{before_fork, after_fork_in_parent, after_fork_in_child};

// Call it with `groups_lock`. Finds a free queue, or one that already belongs to this thread: a
// destructor of the thread that ran after the teardown has made it.
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
        return fail_with_null(error_no_system_resources);
    }
    auto const index = static_cast<std::size_t>(place - std::begin(groups));
    auto * const made = new (std::nothrow) queue_group(index * queue_group::size);
    if (made == nullptr) {
        return fail_with_null(error_not_enough_memory);
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
        ++it->claims;
        owner_of(*it).store(id, std::memory_order_release);
    }
    return it;
}

// The calling thread's queue; null with the last error set.
queue * make_own_queue() noexcept
{
    if (!add_fork_handlers(fork_place::queues, around_forks)) {
        return fail_with_null(error_not_enough_memory);
    }
    uninterrupted const guard; // a termination in between would leave the queue taken
    reap_threads(); // one of them may have had this thread's number
    queue * const it = claim_queue();
    if (it == nullptr) {
        return nullptr;
    }
    if (!set_thread_teardown(release, name_of_claim(*it))) {
        release(name_of_claim(*it));
        return fail_with_null(error_not_enough_memory);
    }
    current_queue = it;
    return it;
}

} // namespace

atomic<std::uint32_t> & owner_of(queue const & it) noexcept
{
    return groups[it.number / queue_group::size]
        .load(std::memory_order_acquire)
        ->owners[it.number % queue_group::size];
}

queue * queue_of(window_name name) noexcept
{
    queue_group * const group
        = groups[name.queue / queue_group::size].load(std::memory_order_acquire);
    return group == nullptr ? nullptr : &group->queues[name.queue % queue_group::size];
}

queue * queue_of_thread(std::uint32_t thread_id) noexcept
{
    queue * found = nullptr;
    for_each_queue([&](queue & it, atomic<std::uint32_t> const & owner) {
        found = owner.load(std::memory_order_acquire) == thread_id ? &it : found;
    });
    return found;
}

queue * own_queue() noexcept { return current_queue != nullptr ? current_queue : make_own_queue(); }

} // namespace zel::platform
