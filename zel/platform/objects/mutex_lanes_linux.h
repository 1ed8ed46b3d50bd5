// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/atomic.h"
#include "zel/platform/objects/robust_mutex_linux.h"
#include <cstdint>

/// A mutex that processes of several pid namespaces share, as containers do that mount the same
/// shared memory. Each namespace has a lane of its own, a robust_mutex that only its threads take,
/// so that the kernel never compares numbers of threads of two namespaces.
///
/// Who has a lane has the mutex, as long as no second namespace has ever come: `crossed` is 0. From
/// then on it has to have `holder` as well:
///
///     holder  bits 0 to 7 the lane that has the mutex and one more, 0 for none; above, the number of
///             changes
///     bias    0: the owner of lane 0 may have the mutex without `holder`
///
/// What each step keeps:
/// - Only the owner of a lane sets `holder` to its lane, and clears it before it gives the lane
///   back. So a holder whose lane has no owner has died, and whoever sees it may take its place; the
///   number of changes lets one of several do so, and that one is told.
/// - `crossed` is set before the first owner of a second lane exists. An owner of lane 0 looks at it
///   after it has taken the lane; a holder of another lane looks, once, whether lane 0 has an owner
///   from before. It has to leave, or to say through `bias` that it wants `holder` like all others.
/// - Between lanes nobody sleeps longer than `between_looks`: the kernel tells of ends within a lane
///   only. So a death is told at once in its own namespace, and some milliseconds later in others.
namespace zel::platform {

constexpr std::uint32_t most_namespaces = 16;

struct mutex_lanes {
    robust_mutex lanes[most_namespaces];
    atomic<std::uint64_t> holder;
    atomic<std::uint32_t> bias;
    atomic<std::uint32_t> kept_out; // a lane and one more whose owner has waited long for `holder`
};

constexpr std::int64_t between_looks = 5'000'000; // nanoseconds

/// The lane of a namespace; it gets one if it has none.
/// \returns its number; `most_namespaces` when all are taken.
std::uint32_t find_lane(mutex_lanes & mutex, std::uint64_t space) noexcept;

/// Takes the mutex once more, or waits for it. The caller is inside `uninterrupted` once.
/// \param lane   of the caller's namespace.
/// \param until  as in mutex_wait.h.
/// \returns 0, 128, 258, `wait_stopped`, or 0xFFFFFFFF with last error 1450 after 4,294,967,295
///          holds.
std::uint32_t wait_for(mutex_lanes & mutex, robust_mutex & lane, robust_caller const & caller,
                       std::int64_t until) noexcept;

/// Gives one hold back. The caller is inside `uninterrupted`, and the memory stays mapped.
/// \returns false when the caller has none.
bool give_back(mutex_lanes & mutex, robust_mutex & lane, robust_caller const & caller) noexcept;

} // namespace zel::platform
