// SPDX-License-Identifier: MIT
#pragma once

namespace zel::platform {

/// What a part of the layer does around a fork of the process, all of it on the forking thread.
/// Null where there is nothing to do.
struct fork_handlers {
    void (*before)() noexcept; // takes the locks that the child must find free
    void (*in_parent)() noexcept; // gives them back
    void (*in_child)() noexcept; // resets them, and forgets the other threads
};

/// Who has handlers, in the order in which `before` is called. `in_parent` and `in_child` are called
/// in the opposite order. A thread that holds a lock of one of them may take locks of those behind
/// it, never of those in front.
enum class fork_place { profiles, queues, named_memory, objects, threads };
constexpr int fork_places = 5;

/// Has the handlers called at every fork from now on. To be called before the state that they look
/// after is used for the first time, with no lock held that one of them takes; further calls cost
/// one load.
///
/// Waits for forks that have begun, so that no handler runs whose `before` did not. The first call
/// of all cannot see one that has begun before it: nothing is called for that one.
/// \param handlers  stays where it is; the same object in each call for a place.
/// \returns false when the host is out of memory. Then nothing has changed.
bool add_fork_handlers(fork_place place, fork_handlers const & handlers) noexcept;

} // namespace zel::platform
