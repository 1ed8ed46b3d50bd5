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
    window_procedure procedure; // null: the entry is free
    std::uint32_t serial; // in a free entry: the next free entry, counted from 1
    bool unicode;
};

/// The content of a window handle: the window's queue, its entry there, and a serial number, which
/// differs for a later window in the same entry. No handle is null or all ones.
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

/// The queue of one thread. Its memory is never freed, so a sender may lock it without knowing
/// whether the thread still lives. When the thread has ended, the next new thread gets the queue.
///
/// Only the owner changes the windows; it reads them without the lock, other threads with it.
/// Everything else except the atomic word is protected by the lock. That word is relaxed: it is set
/// to 1 with the lock held, and whoever sees another value takes the lock next.
struct alignas(64) queue {
    brief_lock lock;
    /// 1 while the owner sleeps for a message or is about to. The thread that sets it to 0 wakes
    /// the owner.
    atomic<std::uint32_t> sleeping{0};
    message_store messages;
    bool fresh = false; // a message came since the owner last read the queue
    bool quit = false;
    bool readable = false; // the state of the descriptor
    int exit_code = 0;
    int descriptor = -1; // an eventfd; made when the owner first asks for it
    std::uint16_t number = 0; // of this queue; never changes
    std::uint32_t window_count = 0; // entries in use or free again
    std::uint32_t window_room = 0;
    std::uint32_t free_window = 0; // counted from 1
    std::uint32_t next_serial = 1; // not reset for a new owner
    window * windows = nullptr;
    std::uint64_t claims = 0; // how many owners it has had
};

/// Holds a lock inside `uninterrupted`, so that the thread is neither suspended nor terminated.
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

/// The same; it is created when there is none. Null with the last error set.
queue * own_queue() noexcept;

/// The queue in a window's handle, which may have another owner by now; null when that queue never
/// existed.
queue * queue_of(window_name name) noexcept;

/// The id of the queue's thread; 0 when the queue is free.
atomic<std::uint32_t> & owner_of(queue const & it) noexcept;

/// The queue of a thread by its id; null when it has none.
queue * queue_of_thread(std::uint32_t thread_id) noexcept;

/// The window with this handle. Call it with the queue's lock, or on the owner's thread.
/// \returns null when it is not a window of that queue.
inline window * window_in(queue & owner, window_name name) noexcept
{
    if (name.queue != owner.number || name.index >= owner.window_count) {
        return nullptr;
    }
    window & found = owner.windows[name.index];
    return found.procedure != nullptr && found.serial == name.serial ? &found : nullptr;
}

/// \name The queue's descriptor, with the lock held
/// Makes it readable if messages wait, else not readable.
void update_descriptor(queue & it) noexcept;
void close_descriptor(queue & it) noexcept;
/// In the child after a fork, makes a new one: an inherited descriptor is shared with the parent,
/// and what one process reads the other misses.
void renew_descriptor(queue & it) noexcept;
/// @}

} // namespace zel::platform
