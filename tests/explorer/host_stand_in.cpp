// SPDX-License-Identifier: MIT
// What the lock-free sources call of the rest of the layer and of the host, as far as the explorer
// needs it.
#include "tests/explorer/explorer.h"
#include "zel/platform/last_error.h"
#include "zel/platform/objects/owned_mutexes_linux.h"
#include "zel/platform/objects/process_life_linux.h"
#include "zel/platform/objects/robust_list_linux.h"
#include "zel/platform/threads/threads.h"
#include "zel/platform/waits/address_wait.h"
#include "zel/platform/waits/this_thread_linux.h"
#include <utility>

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
    return explorer::sleep(&word, expected, until >= 0, shared, false) != timed_out;
}

int wake_address(atomic<std::uint32_t> const & word, int count, bool shared) noexcept
{
    return wake(&word, count, shared);
}

void store_and_wake_all(atomic<std::uint32_t> & word, std::uint32_t value, bool shared) noexcept
{
    explorer::store_and_wake_all(&word, value, shared);
}

wake_reason wait_interruptibly(atomic<std::uint32_t> const & word, std::uint32_t expected,
                               std::int64_t until, bool shared) noexcept
{
    switch (explorer::sleep(&word, expected, until >= 0, shared, true)) {
    case woken:
        return wake_reason::woken;
    case timed_out:
        return wake_reason::timed_out;
    case interrupted:
        return wake_reason::interrupted;
    default:
        return wake_reason::changed;
    }
}

} // namespace zel::platform
