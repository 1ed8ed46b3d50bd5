// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/objects/mutex_word.h"
#include "zel/platform/objects/owned_mutexes_linux.h"
#include "zel/platform/objects/robust_list_linux.h"
#include <cstddef>
#include <cstdint>

/// A lock in memory that processes of one pid namespace share, whose owner's end the kernel tells to
/// the next: the word of mutex_word.h on the robust list of its owner. The high half of the state
/// counts those that went to sleep.
///
/// What each step keeps, beside what mutex_wait.h says:
/// - A thread announces the word before it takes it, as long as it waits for it, and before it gives
///   it back. Killed anywhere in between, the kernel finds the thread's number in the word and tells
///   of its end, or finds nobody's and wakes a sleeper, who sees to the rest.
/// - The kernel compares numbers of threads. In one namespace no two threads that live have the
///   same, so it never takes the lock from an owner that lives. Processes of other namespaces must
///   not use the same word: mutex_lanes_linux.h.
/// - A waiter may be killed after it was woken and before it took the lock, and a third party may
///   take it in between. So the flag survives the release, until a wake has found nobody: the count
///   proves that nobody went to sleep between that wake and the exchange that clears the flag.
namespace zel::platform {

/// What lies behind the state.
struct mutex_ownership {
    robust_node node;
    atomic<std::uint32_t> more_holds; // of the owner, beyond the first; 0 for a free one
    atomic<std::uint64_t> process; // the mark of the owner's (process_life_linux.h)
    /// Where the owner has this structure: a process may see the same memory at several addresses.
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

/// Who calls.
struct robust_caller {
    robust_list * list;
    std::uint32_t self; // its number, as the kernel knows it
    std::uint64_t process; // the mark
};

inline bool is_mine(robust_mutex const & mutex, robust_caller const & caller,
                    std::uint64_t state) noexcept
{
    return (word_of(state) & thread_mask) == caller.self
        && mutex.ownership.process.load(std::memory_order_relaxed) == caller.process;
}

/// One step from a state without an owner. The node is announced, and stays so.
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
    // Mostly they hold that already.
    auto const home = reinterpret_cast<std::uintptr_t>(&mutex.ownership);
    if (mutex.ownership.process.load(std::memory_order_relaxed) != caller.process
        || mutex.ownership.home.load(std::memory_order_relaxed) != home) {
        mutex.ownership.process.store(caller.process, std::memory_order_relaxed);
        mutex.ownership.home.store(home, std::memory_order_relaxed);
    }
    return true;
}

/// Takes a free lock. It stays announced, which spares the release doing it again, as long as the C
/// library's locks do not take its place.
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

/// Gives the only hold of the caller's back when nobody may sleep.
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
        caller.list->add(mutex.ownership.node); // the flag has come
    }
    return freed;
}

/// Gives the only hold of the caller's back, and wakes one that sleeps. The caller is inside
/// `uninterrupted`, and the memory stays mapped meanwhile.
/// \param left  what is left in the word beside the flag: 0, or `owner_died` for a caller that ends.
void free_and_wake(robust_mutex & mutex, robust_caller const & caller,
                   std::uint32_t left = 0) noexcept;

/// Waits for a lock that is not the caller's, who is inside `uninterrupted` once.
/// \param until  nanoseconds of the monotonic clock; negative for no limit, 0 only tests.
/// \returns 0, 128, 258 or `wait_stopped`.
std::uint32_t wait_for(robust_mutex & mutex, robust_caller const & caller,
                       std::int64_t until) noexcept;

/// Whether the kernel may follow a thread of this process to the lock at its address here.
bool is_on_a_list_here(robust_mutex const & mutex, std::uint64_t process) noexcept;

} // namespace zel::platform
