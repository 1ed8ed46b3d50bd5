// SPDX-License-Identifier: MIT
#include "zel/platform/objects/name_holders.h"

namespace zel::platform {
namespace {

constexpr std::uint64_t one_process = 2; // in the gate
constexpr std::uint64_t closed = 1;
constexpr std::uint32_t handle_bits = 24;

std::uint64_t mark_of(std::uint64_t entry) { return entry >> handle_bits; }
std::uint64_t handles_of(std::uint64_t entry)
{
    return entry & name_holders::most_handles_a_process;
}
// An entry without handles stands for the process's forked children.
std::uint32_t life_in(std::uint64_t entry, name_holders::life_function life_of)
{
    return life_of(mark_of(entry))
        & (handles_of(entry) != 0 ? itself_lives | children_live : children_live);
}

std::uint64_t first_handle(std::uint64_t mark) { return mark << handle_bits | 1; }

} // namespace

void name_holders::begin(std::uint64_t mark) noexcept
{
    entries_[0].store(first_handle(mark), std::memory_order_relaxed);
    gate_.store(one_process, std::memory_order_release);
}

name_holders::join_result name_holders::join(std::uint64_t mark, life_function life_of,
                                             std::uint32_t & entry) noexcept
{
    auto const take = [&](std::uint32_t i, std::uint64_t expected, std::uint64_t after) {
        entry = i;
        return entries_[i].compare_exchange_strong(expected, after);
    };
    // Prefer the entry of the same process, then a free one, then one of a process that has ended.
    bool taken = false;
    for (int round = 0; round < 3 && !taken; ++round) {
        for (std::uint32_t i = 0; i < count_ && !taken; ++i) {
            std::uint64_t const now = entries_[i].load();
            bool const mine = mark_of(now) == mark && handles_of(now) < most_handles_a_process;
            if (round == 0 && mine) {
                taken = take(i, now, now + 1);
            } else if (round == 1 && now == 0) {
                taken = take(i, now, first_handle(mark));
            } else if (round == 2 && now != 0 && mark_of(now) != mark
                       && life_in(now, life_of) == is_over) {
                taken = take(i, now, first_handle(mark));
            }
        }
    }
    if (!taken) {
        return join_result::full;
    }
    std::uint64_t gate = gate_.load();
    do {
        if ((gate & closed) != 0) {
            leave(mark, entry, false);
            return join_result::closed;
        }
    } while (!gate_.compare_exchange_weak(gate, gate + one_process));
    return join_result::joined;
}

void name_holders::leave(std::uint64_t mark, std::uint32_t entry, bool has_children) noexcept
{
    std::uint64_t now = entries_[entry].load();
    std::uint64_t after;
    do {
        if (mark_of(now) != mark) {
            return;
        }
        after = handles_of(now) > 1 || has_children ? now - 1 : 0;
    } while (!entries_[entry].compare_exchange_weak(now, after));
}

std::uint32_t name_holders::life(std::uint64_t own, life_function life_of) const noexcept
{
    std::uint32_t found = is_over;
    for (std::uint32_t i = 0; i < count_ && (found & itself_lives) == 0; ++i) {
        std::uint64_t const now = entries_[i].load();
        if (now != 0) {
            found |= mark_of(now) == own && handles_of(now) != 0 ? std::uint32_t{itself_lives}
                                                                 : life_in(now, life_of);
        }
    }
    return found;
}

bool name_holders::close_if_dead(std::uint64_t own, life_function life_of) noexcept
{
    std::uint64_t gate = gate_.load();
    return (gate & closed) == 0 && life(own, life_of) == is_over
        && gate_.compare_exchange_strong(gate, own << 1 | closed);
}

std::uint64_t name_holders::closer() const noexcept
{
    std::uint64_t const gate = gate_.load();
    return (gate & closed) != 0 ? gate >> 1 : 0;
}

bool name_holders::succeed_closer(std::uint64_t closer, std::uint64_t own) noexcept
{
    std::uint64_t expected = closer << 1 | closed;
    return gate_.compare_exchange_strong(expected, own << 1 | closed);
}

} // namespace zel::platform
