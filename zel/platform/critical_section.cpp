// SPDX-License-Identifier: MIT
#include "zel/platform/kernel_objects.h"

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
namespace {

// The owner's number is counted, not the host's: a thread that is terminated inside a section never
// leaves it, and must not lend its hold to a later thread that the host gives the same number.
// A fork copies it with the thread.
constinit std::atomic<std::uint64_t> last_number{0};
[[gnu::tls_model("initial-exec")]] constinit thread_local std::uint64_t own_number = 0;

std::uint64_t number_of_this_thread()
{
    if (own_number == 0) {
        own_number = last_number.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    return own_number;
}

void wait_for_section(critical_section & section)
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
}

void free_and_wake(critical_section & section)
{
    uninterrupted const guard; // between the two steps nobody else would wake the sleeper
    section.word.store(0, std::memory_order_release);
    wake_address(section.word, 1, false);
}

} // namespace

void initialize_critical_section(critical_section & section) noexcept
{
    section.word.store(0, std::memory_order_relaxed);
    section.count = 0;
    section.owner.store(0, std::memory_order_relaxed);
}

void delete_critical_section(critical_section &) noexcept { }

void enter_critical_section(critical_section & section) noexcept
{
    if (try_enter_critical_section(section)) {
        return;
    }
    wait_for_section(section);
    section.owner.store(number_of_this_thread(), std::memory_order_relaxed);
    section.count = 1;
}

bool try_enter_critical_section(critical_section & section) noexcept
{
    std::uint64_t const self = number_of_this_thread();
    if (section.owner.load(std::memory_order_relaxed) == self) {
        ++section.count;
        return true;
    }
    std::uint32_t free = 0;
    if (!section.word.compare_exchange_strong(free, 1, std::memory_order_acquire,
                                              std::memory_order_relaxed)) {
        return false;
    }
    section.owner.store(self, std::memory_order_relaxed);
    section.count = 1;
    return true;
}

void leave_critical_section(critical_section & section) noexcept
{
    if (section.owner.load(std::memory_order_relaxed) != number_of_this_thread()) {
        return;
    }
    if (--section.count != 0) {
        return;
    }
    section.owner.store(0, std::memory_order_relaxed);
    std::uint32_t held = 1;
    if (!section.word.compare_exchange_strong(held, 0, std::memory_order_release,
                                              std::memory_order_relaxed)) {
        free_and_wake(section);
    }
}

} // namespace zel::platform
