// SPDX-License-Identifier: MIT
#include "zel/platform/objects/robust_mutex_linux.h"

#include "zel/platform/objects/mutex_wait.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"

namespace zel::platform {
namespace {

constexpr std::uint64_t one_sleeper = std::uint64_t{1} << 32;

struct waited_mutex {
    robust_mutex & mutex;
    robust_caller const & caller;
    atomic<std::uint64_t> & state;
    atomic<std::uint32_t> & kept_out;
    static constexpr bool is_shared = true;

    bool take(std::uint64_t & now, std::uint32_t flags) const noexcept
    {
        if (!take_announced(mutex, caller, now, flags)) {
            return false;
        }
        mutex.ownership.more_holds.store(0, std::memory_order_relaxed); // of an owner that died
        return true;
    }

    static std::uint64_t before_sleep(std::uint64_t now) noexcept
    {
        return (now | waiters_flag) + one_sleeper;
    }

    static bool is_gone(std::uint64_t now) noexcept
    {
        return !exists_in_namespace(word_of(now) & thread_mask);
    }
};

} // namespace

std::uint32_t wait_for(robust_mutex & mutex, robust_caller const & caller,
                       std::int64_t until) noexcept
{
    // Announced during the whole wait: if the process is killed between the wake-up and taking the
    // lock, the kernel wakes the next sleeper.
    caller.list->announce(mutex.ownership.node);
    std::uint32_t const result
        = wait_for_owner(waited_mutex{mutex, caller, mutex.state, mutex.kept_out}, until);
    caller.list->withdraw();
    return result;
}

void free_and_wake(robust_mutex & mutex, robust_caller const & caller, std::uint32_t left) noexcept
{
    caller.list->announce_again(mutex.ownership.node);
    caller.list->remove(mutex.ownership.node);
    std::uint64_t now = mutex.state.load(std::memory_order_relaxed);
    std::uint64_t freed;
    do {
        freed = with_word(now, (word_of(now) & waiters_flag) | left);
    } while (!mutex.state.compare_exchange_weak(now, freed, std::memory_order_release,
                                                std::memory_order_relaxed));
    count_hold(one_hold_less);
    if ((word_of(now) & waiters_flag) != 0 && wake_address(low_word(mutex.state), 1, true) == 0) {
        mutex.state.compare_exchange_strong(freed, with_word(freed, left),
                                            std::memory_order_relaxed);
    }
    caller.list->withdraw();
}

bool is_on_a_list_here(robust_mutex const & mutex, std::uint64_t process) noexcept
{
    return has_owner(mutex.state.load(std::memory_order_acquire))
        && mutex.ownership.process.load(std::memory_order_relaxed) == process
        && mutex.ownership.home.load(std::memory_order_relaxed)
        == reinterpret_cast<std::uintptr_t>(&mutex.ownership);
}

} // namespace zel::platform
