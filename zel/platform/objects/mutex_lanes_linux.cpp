// SPDX-License-Identifier: MIT
#include "zel/platform/objects/mutex_lanes_linux.h"

#include "zel/platform/kernel_objects.h"
#include "zel/platform/last_error.h"
#include "zel/platform/objects/process_life_linux.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/uninterrupted.h"
#include <algorithm>

namespace zel::platform {
namespace {

enum bias : std::uint32_t {
    lane_0_needs_no_holder,
    all_need_holder,
    all_need_holder_and_one_died, // the next holder reports the mutex as abandoned
};

constexpr std::uint64_t lane_mask = 0xFF;

std::uint64_t next(std::uint64_t holder, std::uint32_t lane_and_one)
{
    return (holder & ~lane_mask) + lane_mask + 1 + lane_and_one;
}

void end_bias(mutex_lanes & mutex, bool one_died)
{
    std::uint32_t expected = lane_0_needs_no_holder;
    mutex.bias.compare_exchange_strong(expected,
                                       one_died ? all_need_holder_and_one_died : all_need_holder);
}

// A lane's owner in another namespace is dead if its lane is free or its process has ended. The
// kernel reports ends of threads only within a namespace.
bool is_dead(robust_mutex const & lane)
{
    return !has_owner(lane.state.load())
        || (life_of_process(lane.ownership.process.load()) & itself_lives) == 0;
}

/// Sleeps until `holder` changes, or until the next check is due.
/// \returns 0, 258 when the wait timed out, or `wait_stopped`.
std::uint32_t sleep(mutex_lanes & mutex, std::uint64_t holder, std::int64_t until)
{
    std::int64_t const now = monotonic_now();
    if (until == 0 || (until > 0 && now >= until)) {
        return wait_timeout;
    }
    std::int64_t const look = now + between_looks;
    wait_interruptibly(low_word(mutex.holder), word_of(holder),
                       until < 0 ? look : std::min(look, until), true);
    return told_to_stop() ? wait_stopped : wait_object_0;
}

// The caller has `holder`. If lane 0 has an owner from the time before a second namespace came,
// this waits until that owner leaves or competes for `holder` too.
std::uint32_t wait_for_end_of_bias(mutex_lanes & mutex, std::int64_t until)
{
    while (mutex.bias.load() == lane_0_needs_no_holder) {
        std::uint64_t const state = mutex.lanes[0].state.load();
        if (!has_owner(state)) {
            end_bias(mutex, (word_of(state) & owner_died) != 0);
        } else if (std::uint32_t const result = sleep(mutex, mutex.holder.load(), until);
                   result != wait_object_0) {
            return result;
        }
    }
    return wait_object_0;
}

void leave_across(mutex_lanes & mutex, std::uint32_t lane)
{
    std::uint64_t holder = mutex.holder.load();
    // Otherwise this thread took lane 0 before a second namespace came, and has no `holder`.
    if ((holder & lane_mask) == lane + 1
        && mutex.holder.compare_exchange_strong(holder, next(holder, 0))) {
        wake_address(low_word(mutex.holder), 1, true);
    }
}

// Takes `holder` for the owner of a lane.
// \param of_lane  the result of the wait for the lane.
// \returns 0 or 128: the caller has the mutex; 258 or `wait_stopped`: the caller has to release its
//          lane.
std::uint32_t enter_across(mutex_lanes & mutex, std::uint32_t lane, std::uint32_t of_lane,
                           std::int64_t until)
{
    if (lane == 0) {
        end_bias(mutex, of_lane == wait_abandoned);
    }
    bool slept = false;
    for (;;) {
        std::uint64_t holder = mutex.holder.load();
        auto const other = static_cast<std::uint32_t>(holder & lane_mask);
        // If `holder` already names this lane, it was set by the lane's previous owner, which died.
        bool const died = other != 0 && (other == lane + 1 || is_dead(mutex.lanes[other - 1]));
        std::uint32_t const first = mutex.kept_out.load();
        bool const stands_back = first != 0 && first != lane + 1 && !slept && until != 0;
        if (died || (other == 0 && !stands_back)) {
            std::uint64_t const mine = next(holder, lane + 1);
            if (!mutex.holder.compare_exchange_strong(holder, mine)) {
                continue;
            }
            if (slept) {
                mutex.kept_out.store(0);
            }
            std::uint32_t const result = wait_for_end_of_bias(mutex, until);
            if (result != wait_object_0) {
                leave_across(mutex, lane);
                return result;
            }
            std::uint32_t debt = all_need_holder_and_one_died;
            bool const told = mutex.bias.compare_exchange_strong(debt, all_need_holder);
            return died || told ? wait_abandoned : wait_object_0;
        }
        if (slept) {
            mutex.kept_out.store(lane + 1);
        }
        if (std::uint32_t const result = sleep(mutex, holder, until); result != wait_object_0) {
            return result;
        }
        slept = true;
    }
}

std::uint32_t take_again(robust_mutex & lane)
{
    atomic<std::uint32_t> & more_holds = lane.ownership.more_holds;
    std::uint32_t const more = more_holds.load(std::memory_order_relaxed);
    if (more == 0xFFFFFFFF) {
        set_last_error(error_no_system_resources);
        return wait_failed;
    }
    more_holds.store(more + 1, std::memory_order_relaxed);
    return wait_object_0;
}

} // namespace

std::uint32_t find_lane(mutex_lanes & mutex, std::uint64_t space) noexcept
{
    for (std::uint32_t i = 0; i < most_namespaces; ++i) {
        robust_mutex & lane = mutex.lanes[i];
        std::uint64_t now = lane.space.load();
        if (now == 0 && i > 0) {
            mutex.lanes[0].crossed.store(1);
            lane.crossed.store(1);
        }
        if (now == space || (now == 0 && lane.space.compare_exchange_strong(now, space))
            || now == space) {
            return i;
        }
    }
    return most_namespaces;
}

std::uint32_t wait_for(mutex_lanes & mutex, robust_mutex & lane, robust_caller const & caller,
                       std::int64_t until) noexcept
{
    if (is_mine(lane, caller, lane.state.load(std::memory_order_relaxed))) {
        return take_again(lane);
    }
    std::uint32_t result = wait_for(lane, caller, until);
    bool const has_lane = result == wait_object_0 || result == wait_abandoned;
    if (has_lane && lane.crossed.load() != 0) {
        auto const number = static_cast<std::uint32_t>(&lane - mutex.lanes);
        result = enter_across(mutex, number, result, until);
        if (result == wait_timeout || result == wait_stopped) {
            free_and_wake(lane, caller);
        }
    }
    return result;
}

bool give_back(mutex_lanes & mutex, robust_mutex & lane, robust_caller const & caller) noexcept
{
    if (!is_mine(lane, caller, lane.state.load(std::memory_order_relaxed))) {
        return false;
    }
    atomic<std::uint32_t> & more_holds = lane.ownership.more_holds;
    if (std::uint32_t const more = more_holds.load(std::memory_order_relaxed); more != 0) {
        more_holds.store(more - 1, std::memory_order_relaxed);
        return true;
    }
    if (lane.crossed.load(std::memory_order_relaxed) != 0) {
        leave_across(mutex, static_cast<std::uint32_t>(&lane - mutex.lanes));
    }
    free_and_wake(lane, caller);
    return true;
}

} // namespace zel::platform
