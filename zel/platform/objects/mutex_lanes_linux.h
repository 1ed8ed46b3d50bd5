// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/objects/robust_mutex_linux.h"
#include <cstdint>

/// A mutex that processes of several pid namespaces share; containers do that when they mount the
/// same shared memory. Each namespace has a lane of its own: a robust_mutex that only threads of
/// that namespace take. So the kernel never compares thread numbers of two namespaces.
///
/// As long as only one namespace has ever used the mutex (`crossed` is 0), the owner of the lane
/// owns the mutex. From then on an owner of a lane has to own `holder` as well:
///
///     holder  bits 0 to 7: one more than the number of the lane that has the mutex, 0 for none;
///             above: the number of changes
///     bias    0: the owner of lane 0 may have the mutex without `holder`
///
/// Invariants:
/// - Only the owner of a lane sets `holder` to its lane, and it clears `holder` before it releases
///   the lane. So if `holder` names a lane without an owner, that owner has died, and any thread
///   that sees this may take over. Because of the number of changes only one of several threads
///   succeeds, and that one reports the mutex as abandoned.
/// - `crossed` is set before the first owner of a second lane exists. An owner of lane 0 checks it
///   after it has taken the lane. A holder of another lane checks once whether lane 0 has an owner
///   from before. Both the stores and the loads of these two words are sequentially consistent: one
///   of the two threads sees the other. That owner has to leave, or to state through `bias` that it
///   competes for `holder` like all others.
/// - A thread that waits for another lane never sleeps longer than `between_looks`, because the
///   kernel reports an owner's end only within a lane. So an owner's end is reported at once in its
///   own namespace, and some milliseconds later in others.
namespace zel::platform {

constexpr std::uint32_t most_namespaces = 16;

struct mutex_lanes {
    robust_mutex lanes[most_namespaces];
    atomic<std::uint64_t> holder;
    atomic<std::uint32_t> bias;
    atomic<std::uint32_t> kept_out; // 1 + a lane whose owner has waited long for `holder`
};

constexpr std::int64_t between_looks = 5'000'000; // nanoseconds

/// Finds the lane of a namespace, and assigns one if it has none.
/// \returns its number; `most_namespaces` when all are taken.
std::uint32_t find_lane(mutex_lanes & mutex, std::uint64_t space) noexcept;

/// Waits for the mutex, or takes it once more if the caller owns it. The caller is inside exactly
/// one `uninterrupted`.
/// \param lane   that of the caller's namespace.
/// \param until  as in mutex_wait.h.
/// \returns 0, 128, 258, `wait_stopped`, or 0xFFFFFFFF with last error 1450 after 4,294,967,295
///          holds.
std::uint32_t wait_for(mutex_lanes & mutex, robust_mutex & lane, robust_caller const & caller,
                       std::int64_t until) noexcept;

/// Gives one hold back. The caller is inside `uninterrupted`, and the memory stays mapped.
/// \returns false when the caller has none.
bool give_back(mutex_lanes & mutex, robust_mutex & lane, robust_caller const & caller) noexcept;

} // namespace zel::platform
