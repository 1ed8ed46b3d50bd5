// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// What a part of the layer does when the process forks. All three run on the forking thread. Null
/// where there is nothing to do.
struct fork_handlers {
    void (*before)() noexcept; // takes the locks that the child must find free
    void (*in_parent)() noexcept; // releases them
    void (*in_child)() noexcept; // resets them, and forgets the other threads
};

/// The parts that have handlers, in the order in which `before` is called. `in_parent` and
/// `in_child` are called in the opposite order. A thread that holds a lock of one part may take
/// locks of the parts that follow it here, never of those that precede it.
enum class fork_place { profiles, queues, named_memory, objects, threads };
constexpr int fork_places = 5;

/// Registers handlers that are called at every fork from now on. Call it before the first use of
/// the state that they protect, and without holding a lock that one of them takes. Further calls
/// cost one load.
///
/// It waits for forks that are under way, so that no handler runs whose `before` did not. Only the
/// very first call cannot see a fork that began earlier: no handler is called for that fork.
/// \param handlers  has to stay valid for the life of the process; the same object in each call for
///                  one `place`.
/// \returns false, with nothing changed, when the host is out of memory.
bool add_fork_handlers(fork_place place, fork_handlers const & handlers) noexcept;

} // namespace zel::platform
