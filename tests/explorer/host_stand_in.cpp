// SPDX-License-Identifier: MIT
// What the lock-free sources call of the rest of the layer and of the host, as far as the explorer
// needs it.
#include "tests/explorer/explorer.h"
#include "zel/platform/last_error.h"
#include "zel/platform/objects/owned_mutexes_linux.h"
#include "zel/platform/objects/process_life_linux.h"
#include "zel/platform/objects/robust_list_linux.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/this_thread_linux.h"
#include <algorithm>
#include <utility>

namespace zel::explorer {

using namespace zel::platform;

bool old_kernel = false;

void wake_up(int thread, wake_reason reason) noexcept
{
    std::uint8_t * const end = now.sleepers + now.sleeping;
    now.sleeping = static_cast<int>(
        std::remove(now.sleepers, end, static_cast<std::uint8_t>(thread)) - now.sleepers);
    now.threads[thread].where = condition::ready;
    now.threads[thread].reason = reason;
}

namespace {

// For what is a part of a step.
std::atomic<std::uint32_t> & plain(atomic<std::uint32_t> & word) { return word; }

int wake_sleepers(void const * word, int count, bool shared)
{
    int woken = 0;
    for (int i = 0; i < now.sleeping && woken < count;) {
        int const thread = now.sleepers[i];
        if (now.threads[thread].word == word && now.threads[thread].shared == shared) {
            wake_up(thread, wake_reason::woken);
            ++woken;
        } else {
            ++i;
        }
    }
    return woken;
}

wake_reason sleep(atomic<std::uint32_t> const & word, std::uint32_t expected, std::int64_t until,
                  bool shared, bool interruptible)
{
    thread_state & self = *running();
    do {
        before_step("sleeps on", &word, sizeof word, "kernel", 0);
        if (interruptible && self.told) {
            return wake_reason::interrupted;
        }
        if (plain(const_cast<atomic<std::uint32_t> &>(word)) != expected) {
            return wake_reason::changed;
        }
        self.word = &word;
        self.shared = shared;
        self.limited = until >= 0;
        self.interruptible = interruptible;
        self.where = condition::asleep;
        now.sleepers[now.sleeping++] = static_cast<std::uint8_t>(now.current);
        if (interruptible) { // the others are brief locks
            fell_asleep();
        }
        leave();
    } while (self.reason == restarted);
    return self.reason;
}

void look_at(std::uintptr_t entry, bool announced)
{
    auto & word = *reinterpret_cast<atomic<std::uint32_t> *>((entry & ~1UL) - 32);
    before_step("the kernel looks at", &word, sizeof word, "kernel", 0);
    std::uint32_t const value = plain(word);
    bool const leaves_it = (value & thread_mask) == host_number();
    if (announced && (old_kernel ? value : value & thread_mask) == 0) {
        wake_address(word, 1, true);
    } else if (leaves_it) {
        plain(word) = (value & waiters_flag) | owner_died;
        if ((value & waiters_flag) != 0) {
            wake_address(word, 1, true);
        }
    }
}

} // namespace

void die() noexcept
{
    std::uintptr_t const * const list = running()->list;
    for (std::uintptr_t entry = list[0]; entry != reinterpret_cast<std::uintptr_t>(list);) {
        std::uintptr_t const next = *reinterpret_cast<std::uintptr_t *>(entry & ~1UL);
        if (entry != list[2]) {
            look_at(entry, false);
        }
        entry = next;
    }
    if (list[2] != 0) {
        look_at(list[2], true);
    }
}

} // namespace zel::explorer

namespace zel::platform {

using namespace zel::explorer;

constinit thread_local this_thread_state this_thread{}; // its id stays 0: not asked for yet
constinit thread_local robust_list * robust_list::own_ = nullptr; // each asks anew

// A new list is empty and leads to itself.
robust_list * robust_list::find() noexcept
{
    void * const list = running() != nullptr ? running()->list : nullptr;
    return static_cast<robust_list *>(list);
}

std::uint32_t current_thread_id() noexcept { return host_number(); }

// The kernel tells of every end here; that there are others is not explored.
std::uint32_t make_owner() noexcept { return host_number(); }
bool exists_in_process(std::uint32_t) noexcept { return true; }
bool exists_in_namespace(std::uint32_t) noexcept { return true; }
std::uint32_t life_of_process(std::uint64_t) noexcept { return itself_lives; }

void set_last_error(std::uint32_t code) noexcept
{
    if (running() != nullptr) {
        running()->last_error = code;
    }
}
std::uint32_t last_error() noexcept { return running()->last_error; }

uninterrupted::uninterrupted() noexcept
{
    if (running() != nullptr) {
        ++running()->depth;
    }
}

uninterrupted::~uninterrupted()
{
    if (running() != nullptr && --running()->depth == 0) {
        stop_if_told();
    }
}

bool told_to_stop() noexcept { return running()->told; }

void stop_if_told() noexcept
{
    thread_state & self = *running();
    if (self.told) {
        int const depth = std::exchange(self.depth, 0);
        note("stops");
        self.where = condition::parked;
        leave();
        self.depth = depth;
    }
}

// Time passes as the scheduler likes.
std::int64_t monotonic_now() noexcept { return 1; }
std::int64_t moment_after(std::uint32_t milliseconds) noexcept
{
    return milliseconds == 0xFFFFFFFF ? std::int64_t{-1} : 1 + std::int64_t{milliseconds};
}

bool wait_on_address(atomic<std::uint32_t> const & word, std::uint32_t expected, std::int64_t until,
                     bool shared) noexcept
{
    return explorer::sleep(word, expected, until, shared, false) != wake_reason::timed_out;
}

wake_reason wait_interruptibly(atomic<std::uint32_t> const & word, std::uint32_t expected,
                               std::int64_t until, bool shared) noexcept
{
    return explorer::sleep(word, expected, until, shared, true);
}

int wake_address(atomic<std::uint32_t> const & word, int count, bool shared) noexcept
{
    before_step("wakes those on", &word, sizeof word, "kernel", 0);
    return wake_sleepers(&word, count, shared);
}

void store_and_wake_all(atomic<std::uint32_t> & word, std::uint32_t value, bool shared) noexcept
{
    before_step("stores and wakes those on", &word, sizeof word, "kernel", 0);
    plain(word) = value;
    wake_sleepers(&word, most_threads, shared);
}

} // namespace zel::platform
