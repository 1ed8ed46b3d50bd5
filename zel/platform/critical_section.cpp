// SPDX-License-Identifier: MIT
#include "zel/platform/critical_section.h"

#include "zel/platform/address_wait.h"
#include "zel/platform/threads.h"

// The word of a section:
//
//     0  free
//     1  held
//     2  held, and somebody may sleep
//
//     enter    0 -> 1, or anything -> 2 in front of a sleep; whoever has slept takes it as 2
//     leave    1 -> 0, or 2 -> 0 and a wake; only this and the sleep cost a system call
//
// A sleeper that was woken and does not take the section wakes the next one in its place.
namespace zel::platform {

constinit thread_local std::uint64_t own_section_number = 0;

// Counted, not the host's: a thread that is terminated inside a section never leaves it, and must
// not lend its hold to a later thread that the host gives the same number. A fork copies it with
// the thread.
std::uint64_t give_section_number() noexcept
{
    static constinit std::atomic<std::uint64_t> last{0};
    own_section_number = last.fetch_add(1, std::memory_order_relaxed) + 1;
    return own_section_number;
}

void wait_for_section(critical_section & section) noexcept
{
    uninterrupted const guard;
    while (section.word.exchange(2, std::memory_order_acquire) != 0) {
        wake_reason const reason = wait_interruptibly(section.word, 2, -1, false);
        if (told_to_stop()) {
            if (reason == wake_reason::woken) {
                wake_address(section.word, 1, false);
            }
            stop_if_told();
        }
    }
    section.owner.store(section_number(), std::memory_order_relaxed);
    section.count = 1;
}

void free_section_and_wake(critical_section & section) noexcept
{
    uninterrupted const guard; // between the two steps nobody else would wake the sleeper
    section.word.store(0, std::memory_order_release);
    wake_address(section.word, 1, false);
}

} // namespace zel::platform
