// SPDX-License-Identifier: MIT
#include "zel/platform/host/fork_handlers.h"

#include "zel/base/atomic.h"
#include <cstdint>

#include <pthread.h>
#include <sched.h>

// No lock and no guard variable protects this state: a child that is forked while another thread
// holds one would find it held for ever.
namespace zel::platform {
namespace {

constinit atomic<fork_handlers const *> handlers_of[fork_places]{};

// The low half has one bit for each place whose handlers are called. The high half counts the forks
// that are between their first and their last handler. While it is not 0 the bits do not change,
// except by a forking thread itself, which may add some. The exchange that sets a bit (release)
// pairs with the acquire at the beginning of a fork, which reads `handlers_of`; the end of a fork
// (release) pairs with the acquire of that exchange.
constinit atomic<std::uint32_t> state{0};
constexpr std::uint32_t one_fork = 0x10000;
static_assert(fork_places <= 16);

// Several threads that register for the first time at once may each register with the host, which
// then calls the handlers several times for each fork. `this_fork` makes all calls but the first do
// nothing.
constinit atomic<bool> is_registered{false};

// The bits of the places whose `before` was called in the fork that this thread performs, and
// whether it performs one. The child's only thread inherits a copy.
constexpr std::uint32_t in_a_fork = 0x80000000;
constinit thread_local std::uint32_t this_fork = 0;

template <typename Call> void for_each_place(std::uint32_t places, int from, int step, Call call)
{
    for (int i = from; i >= 0 && i < fork_places; i += step) {
        if ((places >> i & 1) != 0) {
            call(*handlers_of[i].load(std::memory_order_relaxed));
        }
    }
}

void before_fork()
{
    if (this_fork != 0) {
        return;
    }
    std::uint32_t const places = state.fetch_add(one_fork, std::memory_order_acquire) % one_fork;
    this_fork = in_a_fork | places;
    for_each_place(places, 0, 1, [](fork_handlers const & it) {
        if (it.before != nullptr) {
            it.before();
        }
    });
}

void in_parent()
{
    if (this_fork == 0) {
        return;
    }
    for_each_place(this_fork, fork_places - 1, -1, [](fork_handlers const & it) {
        if (it.in_parent != nullptr) {
            it.in_parent();
        }
    });
    this_fork = 0;
    state.fetch_sub(one_fork, std::memory_order_release);
}

void in_child()
{
    if (this_fork == 0) {
        return;
    }
    // The parent may have forked before it set this.
    is_registered.store(true, std::memory_order_relaxed);
    for_each_place(this_fork, fork_places - 1, -1, [](fork_handlers const & it) {
        if (it.in_child != nullptr) {
            it.in_child();
        }
    });
    this_fork = 0;
    // Other threads of the parent may have been forking too; they do not exist here.
    state.store(state.load(std::memory_order_relaxed) % one_fork, std::memory_order_relaxed);
}

} // namespace

bool add_fork_handlers(fork_place place, fork_handlers const & handlers) noexcept
{
    auto const index = static_cast<int>(place);
    std::uint32_t const bit = std::uint32_t{1} << index;
    std::uint32_t now = state.load(std::memory_order_acquire);
    if ((now & bit) != 0) {
        return true;
    }
    if (!is_registered.load(std::memory_order_acquire)) {
        if (::pthread_atfork(before_fork, in_parent, in_child) != 0) {
            return false;
        }
        is_registered.store(true, std::memory_order_release);
    }
    handlers_of[index].store(&handlers, std::memory_order_relaxed);
    do {
        // If this thread is itself performing a fork, inside a handler of another library, it
        // cannot wait for that fork to end. No handler of the new place is called for that fork.
        while (now >= one_fork && this_fork == 0) {
            ::sched_yield();
            now = state.load(std::memory_order_relaxed);
        }
    } while (!state.compare_exchange_weak(now, now | bit, std::memory_order_acq_rel));
    return true;
}

} // namespace zel::platform
