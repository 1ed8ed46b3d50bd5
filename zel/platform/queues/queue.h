// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/message_queue.h"
#include "zel/platform/queues/message_store.h"
#include "zel/platform/threads/threads.h"
#include <bit>
#include <cstdint>

namespace zel::platform {

struct window {
    window_procedure procedure; // null: the place is free
    std::uint32_t serial; // of a free place: the next free one, counted from 1
    bool unicode;
};

/// What a window handle says: the window's queue and its place there, and a serial number by which
/// a later window at that place is told apart. No handle is null or all ones.
struct window_name {
    std::uint16_t index;
    std::uint16_t queue;
    std::uint32_t serial; // never 0
};
static_assert(sizeof(window_name) == sizeof(window_handle));

inline window_name name_of(window_handle handle) noexcept
{
    return std::bit_cast<window_name>(handle);
}

/// The queue of one thread. It stays where it is for ever, so that a sender may lock it without
/// knowing whether the thread still lives; when it does not, the next new thread gets it.
///
/// Only the owner changes the windows: it reads them without the lock, others with it. All the rest
/// but the atomic word is behind the lock.
struct alignas(64) queue {
    brief_lock lock;
    /// 1 while the owner sleeps, or is about to, until a message comes. Whoever makes it 0 wakes it.
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
    std::uint64_t claims = 0; // how often it got an owner
};

/// A lock that is held where the thread can neither be suspended nor be terminated.
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

/// The calling thread's queue; null when it has none yet.
extern constinit thread_local queue * current_queue;

/// The same, made when there is none; null with the last error set.
queue * own_queue() noexcept;

/// The queue that a window's handle names, whoever has it now; null when there never was one.
queue * queue_of(window_name name) noexcept;

/// The id of the queue's thread; 0 when it has none.
atomic<std::uint32_t> & owner_of(queue const & it) noexcept;

/// The queue of a thread by its id; null when it has none.
queue * queue_of_thread(std::uint32_t thread_id) noexcept;

/// Inside the queue's lock, or on its owner's thread.
/// \returns null when it is no window of that queue.
inline window * window_in(queue & owner, window_name name) noexcept
{
    if (name.queue != owner.number || name.index >= owner.window_count) {
        return nullptr;
    }
    window & found = owner.windows[name.index];
    return found.procedure != nullptr && found.serial == name.serial ? &found : nullptr;
}

/// \name The queue's descriptor, inside the lock
/// @{
/// Makes it readable or not, as the queue is.
void update_descriptor(queue & it) noexcept;
void close_descriptor(queue & it) noexcept;
/// In the child after a fork: a copy of the parent's would be the parent's own, and what one reads
/// the other misses.
void renew_descriptor(queue & it) noexcept;
/// @}

} // namespace zel::platform
