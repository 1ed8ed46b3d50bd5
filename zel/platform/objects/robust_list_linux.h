// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/objects/mutex_word.h"
#include <cstddef>
#include <cstdint>

/// The list of words that a thread owns, which the kernel walks when the thread ends in whatever
/// way, or its process calls exec: in each word that still holds the thread's number it sets
/// `owner_died` in the place of the number and wakes one sleeper (get_robust_list(2), and
/// Documentation/locking/robust-futexes.rst of the kernel).
///
/// A thread has one such list and the C library has put its own locks on it, so nodes here look
/// like the C library's: the word lies 32 bytes in front of `next`, and `previous` right before it.
/// An entry is the address of a node's `next`.
///
/// Every change of a word that others may have to hear of stands between `announce` and `withdraw`:
/// should the thread end in between, the kernel looks at the announced word too, and if it finds
/// nobody's number there it wakes a sleeper, who then sees to the rest. A word that is announced and
/// on the list counts once; it may stay announced as long as the thread owns it.
///
/// The kernel follows 2,048 entries of a list.
namespace zel::platform {

struct robust_node {
    atomic<std::uintptr_t> previous;
    atomic<std::uintptr_t> next;
};

/// How far in front of a node's `previous` its word lies.
constexpr std::size_t robust_word_distance = 24;

class robust_list {
public:
    /// The calling thread's list.
    /// \returns null, with last error 1450, when the host has none or lays it out differently.
    static robust_list * own() noexcept { return own_ != nullptr ? own_ : find(); }

    /// The same, or null when nobody has asked for it yet.
    static robust_list * own_if_known() noexcept { return own_; }

    [[gnu::always_inline]] void announce(robust_node & node) noexcept
    {
        pending_.store(entry_of(node), std::memory_order_relaxed);
        signal_fence();
    }

    /// For a node that mostly is announced still: a step with a lock prefix waits for every store
    /// before it, but not for a load.
    [[gnu::always_inline]] void announce_again(robust_node & node) noexcept
    {
        if (pending_.load(std::memory_order_relaxed) != entry_of(node)) {
            announce(node);
        }
        signal_fence();
    }

    /// Tells of a word that is nobody's and has no node.
    /// \param word  its address; what lies behind it is not looked at.
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

    /// The node's word holds the calling thread's number, and the node is announced.
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

    /// The node is in this list, and announced.
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
    // The lowest bit of an entry is the C library's mark for another sort of lock.
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

    // As the kernel has it in struct robust_list_head.
    link first_;
    std::int64_t offset_;
    link pending_;
};

} // namespace zel::platform
