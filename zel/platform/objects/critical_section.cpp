// SPDX-License-Identifier: MIT
#include "zel/platform/objects/critical_section.h"

#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include <bit>

// The state of a section, where `number` is the owner's:
//
//     0            free
//     number       held
//     number + 1   held, and a thread may sleep
//
//     enter    0 -> number, or number -> number + 1 before a sleep; a thread that has slept enters
//              with 0 -> number + 1
//     leave    number -> 0, or number + 1 -> 0 and a wake; only the wake and the sleep need a
//              system call
//
// Sleepers wait on the low half. If two numbers have the same low half, a sleeper may wait on the
// wrong owner; that owner wakes it as well, because the lowest bit is set.
//
// A sleeper that was woken and does not take the section wakes the next one instead.
namespace zel::platform {

constinit thread_local std::uint64_t own_section_number = 0;

namespace {

atomic<std::uint32_t> const & low_half(atomic<std::uint64_t> const & state)
{
    static_assert(std::endian::native == std::endian::little);
    void const * const address = &state;
    return *static_cast<atomic<std::uint32_t> const *>(address);
}

} // namespace

// This number is counted, not the host's: a thread that is terminated inside a section never leaves
// it, and its hold must not pass to a later thread that the host gives the same number. In a fork
// the child's thread keeps the number.
std::uint64_t give_section_number() noexcept
{
    static constinit atomic<std::uint64_t> last{0};
    own_section_number = last.fetch_add(2, std::memory_order_relaxed) + 2;
    return own_section_number;
}

void wait_for_section(critical_section & section) noexcept
{
    uninterrupted const guard;
    std::uint64_t const self = section_number();
    atomic<std::uint32_t> const & word = low_half(section.state);
    std::uint64_t others = 0; // 1 once this thread has slept: others may sleep too
    std::uint64_t now = section.state.load(std::memory_order_relaxed);
    for (;;) {
        std::uint64_t const after = now == 0 ? self | others : now | 1;
        if (after != now
            && !section.state.compare_exchange_weak(now, after, std::memory_order_acquire,
                                                    std::memory_order_relaxed)) {
            continue;
        }
        if (now == 0) {
            return;
        }
        wake_reason const reason
            = wait_interruptibly(word, static_cast<std::uint32_t>(after), -1, false);
        others = 1;
        if (told_to_stop()) {
            if (reason == wake_reason::woken) {
                wake_address(word, 1, false);
            }
            stop_if_told();
        }
        now = section.state.load(std::memory_order_relaxed);
    }
}

void free_section_and_wake(critical_section & section) noexcept
{
    uninterrupted const guard; // between the two steps no other thread would wake the sleeper
    section.state.store(0, std::memory_order_release);
    wake_address(low_half(section.state), 1, false);
}

} // namespace zel::platform
