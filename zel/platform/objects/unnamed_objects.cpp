// SPDX-License-Identifier: MIT
#include "zel/platform/objects/unnamed_objects.h"

#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"

// The word of an object:
//
//     bits 0 to 30  the number of free units: of a semaphore up to its maximum, of an event 1 when
//                   it is set. A wait takes one; a wait for a manual-reset event takes none
//     bit 31        `queued`: a thread waits, and no unit is free
//
// Without `queued` every operation is one exchange of the word. With `queued` only the holder of
// the queue's lock changes the word. A released unit is then handed over to the first waiter, who
// leaves the queue in the same step. A waiter need not take anything after its wake-up, so no other
// thread can take its unit.
//
// The word is written before a unit is handed over to a waiter. An operation takes effect with that
// write, both for threads that read the word and for waiters in the queue, who cannot leave it
// meanwhile.
//
// A unit that was handed over belongs to the waiter. A thread that is told to stop leaves the
// queue; if it has just been given a unit it keeps it, and its wait ends when it is resumed.
namespace zel::platform {
namespace {

constexpr std::uint32_t queued = 0x80000000;

struct waiter {
    atomic<std::uint32_t> granted{0};
    waiter * next = nullptr;
    waiter * previous = nullptr;
};

struct waiter_queue {
    atomic<std::uint32_t> maximum; // first: maximum_of relies on it
    brief_lock lock;
    waiter * first;
    waiter * last;

    void append(waiter & one) noexcept
    {
        one.next = nullptr;
        one.previous = last;
        (last == nullptr ? first : last->next) = &one;
        last = &one;
    }

    void remove(waiter & one) noexcept
    {
        (one.previous == nullptr ? first : one.previous->next) = one.next;
        (one.next == nullptr ? last : one.next->previous) = one.previous;
    }

    // The release pairs with the acquire in wait_in_queue. The waiter and its stack may be gone as
    // soon as `granted` is set. The wake needs only the address, and another thread that sleeps on
    // that address by then tolerates a false wake-up.
    void grant_first() noexcept
    {
        waiter & one = *first;
        remove(one);
        atomic<std::uint32_t> const & word = one.granted;
        one.granted.store(1, std::memory_order_release);
        wake_address(word, 1, false);
    }
};
static_assert(sizeof(waiter_queue) <= sizeof(handle_slot::room));

waiter_queue & queue_of(handle_slot & slot)
{
    void * const room = slot.room;
    return *static_cast<waiter_queue *>(room);
}

bool refuse(std::uint32_t error)
{
    set_last_error(error);
    return false;
}

/// Access to the queue: holds its lock and a pin, so that the slot is not reused, and the thread is
/// not stopped.
class queue_access {
public:
    queue_access(handle_slot & slot, void * handle) noexcept
        : slot_(slot)
        , pinned_(pin(slot, handle))
    {
        if (pinned_) {
            queue_of(slot).lock.lock();
        }
    }
    ~queue_access()
    {
        if (pinned_) {
            queue_of(slot_).lock.unlock();
            if (unpin(slot_)) {
                free_slot(slot_);
            }
        }
    }
    queue_access(queue_access const &) = delete;
    queue_access & operator=(queue_access const &) = delete;

    explicit operator bool() const noexcept { return pinned_ || refuse(error_invalid_handle); }
    waiter_queue & operator*() const noexcept { return queue_of(slot_); }
    waiter_queue * operator->() const noexcept { return &queue_of(slot_); }

private:
    uninterrupted const guard_;
    handle_slot & slot_;
    bool const pinned_;
};

// Even under a pin the tag may change when the handle is closed. Without `queued` the word may
// change too.
void set_word(handle_slot & slot, std::uint32_t word)
{
    std::uint64_t state = slot.state.load(std::memory_order_relaxed);
    while (!slot.state.compare_exchange_weak(state, with_word(state, word),
                                             std::memory_order_acq_rel)) { }
}

// Under the queue's lock: hands a unit over to each of the first `most` waiters. If no waiter is
// left, the word becomes `units` minus `each` for every one of them.
void distribute(handle_slot & slot, waiter_queue & queue, std::uint32_t most, std::uint32_t units,
                std::uint32_t each)
{
    std::uint32_t count = 0;
    waiter const * left = queue.first;
    for (; left != nullptr && count < most; left = left->next) {
        ++count;
    }
    if (left == nullptr) {
        set_word(slot, units - count * each);
    }
    for (; count > 0; --count) {
        queue.grant_first();
    }
}

constexpr std::uint32_t everybody = 0x7FFFFFFF;

// Under the queue's lock: takes a unit, or sets `queued`.
bool take_or_announce(handle_slot & slot, bool manual)
{
    std::uint64_t state = slot.state.load(std::memory_order_acquire);
    for (;;) {
        std::uint32_t const word = word_of(state);
        bool const free = word != 0 && word != queued;
        if (free && manual) {
            return true;
        }
        if (slot.state.compare_exchange_weak(state, with_word(state, free ? word - 1 : queued),
                                             std::memory_order_acq_rel,
                                             std::memory_order_acquire)) {
            return free;
        }
    }
}

void leave(handle_slot & slot, waiter_queue & queue, waiter & self)
{
    queue.remove(self);
    if (queue.first == nullptr) {
        set_word(slot, 0);
    }
}

enum class outcome { given, timed_out, stopped };

// Waits once: joins the queue, sleeps, leaves it. This is where a wait for an unnamed event or
// semaphore times out.
outcome wait_in_queue(handle_slot & slot, waiter_queue & queue, bool manual, std::int64_t until)
{
    waiter self;
    queue.lock.lock();
    bool const taken = take_or_announce(slot, manual);
    if (!taken) {
        queue.append(self);
    }
    queue.lock.unlock();
    if (taken) {
        return outcome::given;
    }

    wake_reason reason;
    do {
        reason = wait_interruptibly(self.granted, 0, until, false);
        if (self.granted.load(std::memory_order_acquire) != 0) {
            return outcome::given;
        }
    } while (reason != wake_reason::timed_out && !told_to_stop());

    queue.lock.lock();
    bool const given = self.granted.load(std::memory_order_relaxed) != 0;
    if (!given) {
        leave(slot, queue, self);
    }
    queue.lock.unlock();
    if (given) {
        return outcome::given;
    }
    return reason == wake_reason::timed_out ? outcome::timed_out : outcome::stopped;
}

std::uint32_t wait_slowly(handle_slot & slot, void * handle, bool manual,
                          std::uint32_t milliseconds)
{
    std::int64_t const until = moment_after(milliseconds);
    for (;;) {
        // A thread that is told to stop does so at the end of this block, after the pin was
        // dropped: it may be terminated there.
        uninterrupted const guard;
        if (!pin(slot, handle)) {
            set_last_error(error_invalid_handle);
            return wait_failed;
        }
        outcome const result = wait_in_queue(slot, queue_of(slot), manual, until);
        if (unpin(slot)) {
            free_slot(slot);
        }
        if (result != outcome::stopped) {
            return result == outcome::given ? wait_object_0 : wait_timeout;
        }
    }
}

/// Replaces a word that has no `queued`.
/// \param before  receives the old word; if that is `queued`, nothing was changed.
bool exchange(handle_slot & slot, void * handle, std::uint32_t & before, std::uint32_t after)
{
    std::uint64_t state = slot.state.load(std::memory_order_relaxed);
    do {
        if (!is_alive(state, handle)) {
            return refuse(error_invalid_handle);
        }
        before = word_of(state);
        // Written even if the word stays the same, so that what this thread did before becomes
        // visible to the thread that is let through.
    } while (before != queued
             && !slot.state.compare_exchange_weak(state, with_word(state, after),
                                                  std::memory_order_acq_rel,
                                                  std::memory_order_relaxed));
    return true;
}

bool is_manual(void * handle) { return kind_of(handle) == handle_kind::manual_event; }

} // namespace

void * create_unnamed(handle_kind kind, std::uint32_t initial, std::uint32_t maximum) noexcept
{
    uninterrupted const guard;
    handle_slot * const slot = take_slot();
    if (slot == nullptr) {
        return nullptr;
    }
    queue_of(*slot).maximum.store(maximum, std::memory_order_relaxed);
    return publish(*slot, kind, initial, 0xFFFFFFFF);
}

std::uint32_t wait_for_unnamed(handle_slot & slot, void * handle,
                               std::uint32_t milliseconds) noexcept
{
    bool const manual = is_manual(handle);
    std::uint64_t state = slot.state.load(std::memory_order_acquire);
    for (;;) {
        if (!is_alive(state, handle)) {
            set_last_error(error_invalid_handle);
            return wait_failed;
        }
        if (word_of(state) == 0 || word_of(state) == queued) {
            break;
        }
        if (manual
            || slot.state.compare_exchange_weak(state, state - 1, std::memory_order_acquire)) {
            return wait_object_0;
        }
    }
    return milliseconds == 0 ? wait_timeout : wait_slowly(slot, handle, manual, milliseconds);
}

bool set_unnamed_event(handle_slot & slot, void * handle) noexcept
{
    std::uint32_t before;
    if (!exchange(slot, handle, before, 1)) {
        return false;
    }
    if (before == queued) {
        queue_access const queue(slot, handle);
        if (!queue) {
            return false;
        }
        if (is_manual(handle)) {
            distribute(slot, *queue, everybody, 1, 0);
        } else {
            distribute(slot, *queue, 1, 1, 1);
        }
    }
    return true;
}

bool reset_unnamed_event(handle_slot & slot, void * handle) noexcept
{
    std::uint32_t before;
    return exchange(slot, handle, before, 0);
}

bool pulse_unnamed_event(handle_slot & slot, void * handle) noexcept
{
    std::uint32_t before;
    if (!exchange(slot, handle, before, 0)) {
        return false;
    }
    if (before == queued) {
        queue_access const queue(slot, handle);
        if (!queue) {
            return false;
        }
        distribute(slot, *queue, is_manual(handle) ? everybody : 1, 0, 0);
    }
    return true;
}

bool release_unnamed_semaphore(handle_slot & slot, void * handle, std::uint32_t count,
                               std::int32_t * previous) noexcept
{
    std::uint32_t const maximum = maximum_of(slot);
    std::uint64_t state = slot.state.load(std::memory_order_relaxed);
    for (;;) {
        if (!is_alive(state, handle)) {
            return refuse(error_invalid_handle);
        }
        std::uint32_t const before = word_of(state);
        std::uint32_t const free = before & ~queued;
        if (count > maximum - free) {
            return refuse(error_too_many_posts);
        }
        if (before != queued) {
            if (!slot.state.compare_exchange_weak(state, state + count, std::memory_order_release,
                                                  std::memory_order_relaxed)) {
                continue;
            }
        } else {
            queue_access const queue(slot, handle);
            if (!queue) {
                return false;
            }
            state = slot.state.load(std::memory_order_relaxed);
            if (word_of(state) != queued) {
                continue; // the last waiter has left meanwhile
            }
            distribute(slot, *queue, count, count, 1);
        }
        if (previous != nullptr) {
            *previous = static_cast<std::int32_t>(free);
        }
        return true;
    }
}

void forget_waiters(handle_slot & slot) noexcept
{
    waiter_queue & queue = queue_of(slot);
    queue.lock.reset();
    queue.first = nullptr;
    queue.last = nullptr;
    if (word_of(slot.state.load(std::memory_order_relaxed)) == queued) {
        set_word(slot, 0);
    }
}

} // namespace zel::platform
