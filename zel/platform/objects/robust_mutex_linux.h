// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/objects/mutex_word.h"
#include "zel/platform/objects/owned_mutexes_linux.h"
#include "zel/platform/objects/robust_list_linux.h"
#include <cstddef>
#include <cstdint>

/// A lock in memory that processes of one pid namespace share: the word of mutex_word.h, on its
/// owner's robust list. When the owner ends, the kernel reports it to the next owner. The high half
/// of the state counts the threads that went to sleep.
///
/// Invariants, in addition to those of mutex_wait.h:
/// - A thread announces the word before it takes it, while it waits for it, and before it releases
///   it. If the thread is killed in between, the kernel either finds its number in the word and
///   marks the owner as dead, or finds no owner and wakes a sleeper, who handles the rest.
/// - The kernel compares thread numbers. Within one namespace no two living threads have the same
///   number, so the kernel never takes the lock from a living owner. Processes of other namespaces
///   must not use the same word: see mutex_lanes_linux.h.
/// - A waiter may be killed after it was woken and before it took the lock, and another thread may
///   take the lock in between. So the flag stays set after a release, until a wake has found no
///   sleeper. The count proves that no thread went to sleep between that wake and the exchange that
///   clears the flag.
namespace zel::platform {

/// The members behind the state.
struct mutex_ownership {
    robust_node node;
    atomic<std::uint32_t> more_holds; // of the owner, beyond the first; 0 for a free one
    atomic<std::uint64_t> process; // the mark of the owner's process (process_life_linux.h)
    /// The address of this structure in the owner's mapping: a process may have the same memory at
    /// several addresses.
    atomic<std::uintptr_t> home;
};

struct alignas(64) robust_mutex {
    atomic<std::uint64_t> state;
    atomic<std::uint32_t> kept_out; // mutex_wait.h
    atomic<std::uint32_t> crossed; // mutex_lanes_linux.h
    atomic<std::uint64_t> space; // the same
    mutex_ownership ownership;
};
static_assert(offsetof(robust_mutex, ownership) == robust_word_distance);
static_assert(sizeof(robust_mutex) == 64);

/// The calling thread.
struct robust_caller {
    robust_list * list;
    std::uint32_t self; // the kernel's number of it
    std::uint64_t process; // the mark of its process
};

inline bool is_mine(robust_mutex const & mutex, robust_caller const & caller,
                    std::uint64_t state) noexcept
{
    return (word_of(state) & thread_mask) == caller.self
        && mutex.ownership.process.load(std::memory_order_relaxed) == caller.process;
}

/// Takes the lock in one step from a state without an owner. The node is announced before and stays
/// announced.
/// \param expected  updated on failure.
[[gnu::always_inline]] inline bool take_announced(robust_mutex & mutex,
                                                  robust_caller const & caller,
                                                  std::uint64_t & expected,
                                                  std::uint32_t flags) noexcept
{
    // Sequentially consistent: the caller looks at `crossed` next.
    if (!mutex.state.compare_exchange_strong(expected, with_word(expected, caller.self | flags))) {
        return false;
    }
    count_hold(1);
    caller.list->add(mutex.ownership.node);
    // Usually they have these values already.
    auto const home = reinterpret_cast<std::uintptr_t>(&mutex.ownership);
    if (mutex.ownership.process.load(std::memory_order_relaxed) != caller.process
        || mutex.ownership.home.load(std::memory_order_relaxed) != home) {
        mutex.ownership.process.store(caller.process, std::memory_order_relaxed);
        mutex.ownership.home.store(home, std::memory_order_relaxed);
    }
    return true;
}

/// Takes a free lock. The node stays announced, unless a lock of the C library is announced in its
/// place; that spares the release announcing it again.
[[gnu::always_inline]] inline bool take_free(robust_mutex & mutex, robust_caller const & caller,
                                             std::uint64_t state) noexcept
{
    caller.list->announce(mutex.ownership.node);
    bool const taken = word_of(state) == 0 && take_announced(mutex, caller, state, 0);
    if (!taken) {
        caller.list->withdraw();
    }
    return taken;
}

/// Releases the caller's only hold if no thread may sleep.
/// \returns false when nothing was done.
[[gnu::always_inline]] inline bool give_back_unwatched(robust_mutex & mutex,
                                                       robust_caller const & caller,
                                                       std::uint64_t state) noexcept
{
    if ((word_of(state) & waiters_flag) != 0) {
        return false;
    }
    caller.list->announce_again(mutex.ownership.node);
    caller.list->remove(mutex.ownership.node);
    bool const freed = mutex.state.compare_exchange_strong(
        state, with_word(state, 0), std::memory_order_release, std::memory_order_relaxed);
    if (freed) {
        caller.list->withdraw();
        count_hold(one_hold_less);
    } else {
        caller.list->add(mutex.ownership.node); // a thread has set the flag meanwhile
    }
    return freed;
}

/// Releases the caller's only hold, and wakes one sleeper. The caller is inside `uninterrupted`,
/// and the memory stays mapped meanwhile.
/// \param left  the bits that stay in the word besides the flag: 0, or `owner_died` if the caller
///              ends.
void free_and_wake(robust_mutex & mutex, robust_caller const & caller,
                   std::uint32_t left = 0) noexcept;

/// Waits for a lock that the caller does not own. The caller is inside exactly one `uninterrupted`.
/// \param until  nanoseconds of the monotonic clock; negative for no limit, 0 only tests.
/// \returns 0, 128, 258 or `wait_stopped`.
std::uint32_t wait_for(robust_mutex & mutex, robust_caller const & caller,
                       std::int64_t until) noexcept;

/// True if the lock may be on the robust list of a thread of this process, at this address.
bool is_on_a_list_here(robust_mutex const & mutex, std::uint64_t process) noexcept;

} // namespace zel::platform
