// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/objects/robust_list_linux.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/handles.h"
#include "zel/platform/waits/this_thread_linux.h"
#include <cstdint>

/// A mutex that its owner may take again and whose owner's end is told to the next: one algorithm
/// for mutexes of one process, which lie in a slot of the table of handles, and for those in memory
/// that processes share.
///
/// The word is the low half of a 64-bit state:
///
///     bits 0 to 29  the host's number of the thread that owns it, 0 for none
///     owner_died    the owner ended; whoever takes the mutex learns it
///     waiters_flag  somebody may sleep
///
/// and the high half is the slot's tag, or, in shared memory, a count of those that went to sleep.
///
/// A waiter may be killed at any instruction in shared memory, also after it was woken and before
/// it took the mutex; a third party that takes the mutex in between must not forget the flag. So
/// there the flag survives the release, until a wake has found nobody: the count proves that nobody
/// went to sleep between that wake and the exchange that clears the flag.
namespace zel::platform {

/// What lies behind the state of a mutex.
struct mutex_ownership {
    robust_node node;
    atomic<std::uint32_t> more_holds; // of the owner, beyond the first; 0 for a free one
    /// In shared memory the owner's process. Processes in different containers may use the same
    /// numbers for their threads.
    atomic<std::uint64_t> process;
    /// Where the owner has this structure: a process may see the same memory at several addresses.
    atomic<std::uintptr_t> home;
};

struct robust_mutex {
    atomic<std::uint64_t> & state;
    mutex_ownership & ownership;
    std::uint64_t process; // the mark of this process (process_life_linux.h)

    bool is_shared() const noexcept { return true; }

    atomic<std::uint32_t> const & word() const noexcept { return word_in(state); }

    static atomic<std::uint32_t> const & word_in(atomic<std::uint64_t> const & state) noexcept
    {
        void const * const address = &state;
        return *static_cast<atomic<std::uint32_t> const *>(address);
    }

    /// \param self  thread_number()
    bool is_mine(std::uint32_t self, std::uint32_t word_now) const noexcept
    {
        return (word_now & thread_mask) == self
            && (!is_shared() || ownership.process.load(std::memory_order_relaxed) == process);
    }

    static std::uint32_t thread_number() noexcept
    {
        return this_thread.id != 0 ? this_thread.id : current_thread_id();
    }

    /// One step from a free or abandoned state to one that the calling thread owns. The node is
    /// announced, and stays so.
    /// \param expected  updated on failure.
    [[gnu::always_inline]] bool take_announced(robust_list & list, std::uint32_t self,
                                               std::uint64_t & expected,
                                               std::uint32_t flags) const noexcept
    {
        if (!state.compare_exchange_strong(expected, with_word(expected, self | flags),
                                           std::memory_order_acquire, std::memory_order_acquire)) {
            return false;
        }
        list.add(ownership.node);
        if (is_shared()) {
            // Mostly they hold that already.
            auto const home = reinterpret_cast<std::uintptr_t>(&ownership);
            if (ownership.process.load(std::memory_order_relaxed) != process
                || ownership.home.load(std::memory_order_relaxed) != home) {
                ownership.process.store(process, std::memory_order_relaxed);
                ownership.home.store(home, std::memory_order_relaxed);
            }
        }
        return true;
    }

    /// Takes a free mutex. It stays announced, which spares the release doing it again, as long as
    /// the C library's locks do not take its place.
    [[gnu::always_inline]] bool take(robust_list & list, std::uint32_t self,
                                     std::uint64_t & expected) const noexcept
    {
        list.announce(ownership.node);
        bool const taken = take_announced(list, self, expected, 0);
        if (!taken) {
            list.withdraw();
        }
        return taken;
    }

    /// Whether the kernel may follow a thread of this process to `ownership` at its address here.
    bool is_on_a_list_here() const noexcept
    {
        if ((word_of(state.load(std::memory_order_acquire)) & thread_mask) == 0) {
            return false;
        }
        return !is_shared()
            || (ownership.process.load(std::memory_order_relaxed) == process
                && ownership.home.load(std::memory_order_relaxed)
                    == reinterpret_cast<std::uintptr_t>(&ownership));
    }

    /// Takes a mutex that is the caller's once more.
    /// \returns false with last error 1450 after 4,294,967,295 times.
    bool take_again() const noexcept { return hold_again(ownership); }

    /// For a mutex that was not free and not the caller's, who is inside `uninterrupted` once.
    /// \param until  0 only tests.
    /// \returns 0, 128, 258 or `wait_stopped`.
    std::uint32_t wait(robust_list & list, std::int64_t until) const noexcept;

    /// Gives one hold of the caller's back.
    /// \returns true.
    [[gnu::always_inline]] bool give_back(robust_list & list, std::uint64_t now) const noexcept
    {
        std::uint32_t const more = ownership.more_holds.load(std::memory_order_relaxed);
        if (more > 0) {
            ownership.more_holds.store(more - 1, std::memory_order_relaxed);
            return true;
        }
        list.announce_again(ownership.node);
        list.remove(ownership.node);
        if ((now & waiters_flag) != 0
            || !state.compare_exchange_strong(now, with_word(now, 0), std::memory_order_release,
                                              std::memory_order_relaxed)) {
            return free_and_wake(state, is_shared(), list, now);
        }
        list.withdraw();
        return true;
    }

private:
    // Not members of an object, so that the fast paths need no copy in memory.
    static bool hold_again(mutex_ownership & ownership) noexcept;
    static bool free_and_wake(atomic<std::uint64_t> & state, bool shared, robust_list & list,
                              std::uint64_t now) noexcept;
};

} // namespace zel::platform
