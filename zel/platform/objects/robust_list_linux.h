// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/objects/mutex_word.h"
#include <cstddef>
#include <cstdint>

/// The list of lock words that a thread owns. The kernel walks it when the thread ends, in whatever
/// way, and when its process calls exec. In each word that still contains the thread's number, the
/// kernel replaces the number by `owner_died` and wakes one sleeper (get_robust_list(2), and
/// Documentation/locking/robust-futexes.rst of the kernel).
///
/// A thread has only one such list, and the C library puts its own locks on it. So the nodes here
/// have the layout of the C library's: the word lies 32 bytes before `next`, and `previous`
/// directly before `next`. An entry is the address of a node's `next`.
///
/// Every change of a word that other threads may have to notice is made between `announce` and
/// `withdraw`. If the thread ends in between, the kernel checks the announced word too. If the word
/// contains no owner, the kernel wakes a sleeper, who then handles the rest. A word that is both
/// announced and on the list counts once; it may stay announced as long as the thread owns it.
///
/// The kernel follows at most 2,048 entries of a list.
namespace zel::platform {

struct robust_node {
    atomic<std::uintptr_t> previous;
    atomic<std::uintptr_t> next;
};

/// How many bytes before a node's `previous` its word lies.
constexpr std::size_t robust_word_distance = 24;

class robust_list {
public:
    /// The calling thread's list.
    /// \returns null, with last error 1450, when the host has no list or uses another layout.
    static robust_list * own() noexcept { return own_ != nullptr ? own_ : find(); }

    /// The same, or null before the first call of `own` on this thread.
    static robust_list * own_if_known() noexcept { return own_; }

    [[gnu::always_inline]] void announce(robust_node & node) noexcept
    {
        pending_.store(entry_of(node), std::memory_order_relaxed);
        signal_fence();
    }

    /// Skips the store when the node is already announced: a store would delay the caller's next
    /// atomic operation, a load does not.
    [[gnu::always_inline]] void announce_again(robust_node & node) noexcept
    {
        if (pending_.load(std::memory_order_relaxed) != entry_of(node)) {
            announce(node);
        }
        signal_fence();
    }

    /// Announces a word that has no owner and no node.
    /// \param word  its address; the memory behind the word is not accessed.
    void announce_word(void const * word) noexcept
    {
        pending_.store(reinterpret_cast<std::uintptr_t>(word) + 32, std::memory_order_relaxed);
        signal_fence();
    }

    [[gnu::always_inline]] void withdraw() noexcept
    {
        signal_fence();
        pending_.store(0, std::memory_order_relaxed);
    }

    /// Adds a node that is announced and whose word contains the calling thread's number.
    [[gnu::always_inline]] void add(robust_node & node) noexcept
    {
        std::uintptr_t const first = first_.load(std::memory_order_relaxed);
        node.next.store(first, std::memory_order_relaxed);
        node.previous.store(end(), std::memory_order_relaxed);
        set_previous_of(first, entry_of(node));
        signal_fence();
        first_.store(entry_of(node), std::memory_order_relaxed);
        signal_fence();
    }

    /// Removes a node that is in this list and announced.
    [[gnu::always_inline]] void remove(robust_node & node) noexcept
    {
        std::uintptr_t const next = node.next.load(std::memory_order_relaxed);
        std::uintptr_t const previous = node.previous.load(std::memory_order_relaxed);
        set_previous_of(next, previous);
        signal_fence();
        next_of(previous).store(next, std::memory_order_relaxed);
        signal_fence();
    }

private:
    using link = atomic<std::uintptr_t>;

    static robust_list * find() noexcept;

    static std::uintptr_t entry_of(robust_node & node) noexcept
    {
        return reinterpret_cast<std::uintptr_t>(&node.next);
    }
    // The C library sets the lowest bit of an entry for another kind of lock.
    static link & next_of(std::uintptr_t entry) noexcept
    {
        return *reinterpret_cast<link *>(entry & ~std::uintptr_t{1});
    }
    std::uintptr_t end() const noexcept { return reinterpret_cast<std::uintptr_t>(&first_); }
    void set_previous_of(std::uintptr_t entry, std::uintptr_t previous) noexcept
    {
        if (entry != end()) {
            (&next_of(entry))[-1].store(previous, std::memory_order_relaxed);
        }
    }

    [[gnu::tls_model("initial-exec")]] static constinit thread_local robust_list * own_;

    // The layout of the kernel's struct robust_list_head.
    link first_;
    std::int64_t offset_;
    link pending_;
};

} // namespace zel::platform
