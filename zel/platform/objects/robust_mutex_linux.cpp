// SPDX-License-Identifier: MIT
#include "zel/platform/objects/robust_mutex_linux.h"

#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/waits/address_wait.h"

namespace zel::platform {

namespace {

constexpr std::uint64_t one_sleeper = std::uint64_t{1} << 32;

} // namespace

bool robust_mutex::hold_again(mutex_ownership & ownership) noexcept
{
    std::uint32_t const more = ownership.more_holds.load(std::memory_order_relaxed);
    if (more == 0xFFFFFFFF) {
        set_last_error(error_no_system_resources);
        return false;
    }
    ownership.more_holds.store(more + 1, std::memory_order_relaxed);
    return true;
}

std::uint32_t robust_mutex::wait(robust_list & list, std::int64_t until) const noexcept
{
    std::uint32_t const self = thread_number();
    std::uint32_t others = 0; // the flag, once this thread has slept: it may not be the only one
    std::uint32_t result = wait_timeout;
    // All the time: a process that is killed between its wake-up and its taking has the kernel wake
    // the next.
    list.announce(ownership.node);
    std::uint64_t now = state.load(std::memory_order_acquire);
    for (;;) {
        std::uint32_t const seen = word_of(now);
        if ((seen & thread_mask) == 0) {
            if (take_announced(list, self, now, (seen & waiters_flag) | others)) {
                ownership.more_holds.store(0, std::memory_order_relaxed); // those of a dead owner
                result = (seen & owner_died) != 0 ? wait_abandoned : wait_object_0;
                break;
            }
            continue;
        }
        if (until == 0) {
            break;
        }
        std::uint64_t const flagged = (now | waiters_flag) + (is_shared() ? one_sleeper : 0);
        if (flagged != now && !state.compare_exchange_weak(now, flagged)) {
            continue;
        }
        wake_reason const reason = wait_interruptibly(word(), word_of(flagged), until, true);
        others = waiters_flag;
        if (told_to_stop()) {
            if (reason == wake_reason::woken) {
                wake_address(word(), 1, true);
            }
            result = wait_stopped;
            break;
        }
        if (reason == wake_reason::late) {
            break;
        }
        now = state.load(std::memory_order_acquire);
    }
    list.withdraw();
    return result;
}

bool robust_mutex::free_and_wake(atomic<std::uint64_t> & state, bool shared, robust_list & list,
                                 std::uint64_t now) noexcept
{
    uninterrupted const guard; // between the two steps nobody else would wake the sleeper
    std::uint64_t freed;
    do {
        freed = with_word(now, shared ? word_of(now) & waiters_flag : 0);
    } while (!state.compare_exchange_weak(now, freed, std::memory_order_release,
                                          std::memory_order_relaxed));
    if ((word_of(now) & waiters_flag) != 0 && wake_address(word_in(state), 1, true) == 0
        && shared) {
        state.compare_exchange_strong(freed, with_word(freed, 0), std::memory_order_relaxed);
    }
    list.withdraw();
    return true;
}

} // namespace zel::platform
