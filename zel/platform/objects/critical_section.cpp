// SPDX-License-Identifier: MIT
#include "zel/platform/objects/critical_section.h"

#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include <bit>

// The state of a section, where `number` is the owner's:
//
//     0            free
//     number       held
//     number + 1   held, and somebody may sleep
//
//     enter    0 -> number, or number -> number + 1 in front of a sleep; whoever has slept takes it
//              as number + 1
//     leave    number -> 0, or number + 1 -> 0 and a wake; only this and the sleep cost a system
//              call
//
// Sleepers look at the low half. Should two numbers share one, whoever sleeps beside the wrong owner
// is woken by it as well: the lowest bit is set.
//
// A sleeper that was woken and does not take the section wakes the next one in its place.
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

// Counted, not the host's: a thread that is terminated inside a section never leaves it, and must
// not lend its hold to a later thread that the host gives the same number. A fork copies it with
// the thread.
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
    std::uint64_t others = 0; // 1 once this thread has slept: it may not be the only one
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
    uninterrupted const guard; // between the two steps nobody else would wake the sleeper
    section.state.store(0, std::memory_order_release);
    wake_address(low_half(section.state), 1, false);
}

} // namespace zel::platform
