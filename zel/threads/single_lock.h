// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/threads/sync_obj.h"
#include <cstdint>

namespace zel {

/// Holds a lock for the time of a block.
///
/// It remembers the result of the last `lock`, and gives the object back once when it goes. The
/// object has to outlive it. A guard belongs to one thread. What the object raises passes through.
/// \code
///     zel::single_lock held(guard);
///     zel::single_lock maybe(other, false);
///     if (maybe.lock(100)) { ... }
/// \endcode
class ZEL_API single_lock {
public:
    /// \param lock_now  waits for the object without a limit.
    single_lock(sync_obj & guarded, bool lock_now = true);

    /// A copy believes that it holds what the other one holds, and both would give it back.
    single_lock(single_lock const & other) = default;
    single_lock & operator=(single_lock const &) = delete;
    virtual ~single_lock();

    /// Asks the object, whether or not it is held already, and remembers the answer: one that fails
    /// forgets an earlier hold.
    /// \param timeout  milliseconds; 0 only tests, 0xFFFFFFFF has no limit.
    virtual bool lock(std::uint32_t timeout);

    /// Gives the object back when it is held, as `sync_obj::unlock(count, previous)` does.
    /// \returns whether nothing is held now; a failed release leaves the guard locked.
    virtual bool unlock(std::int32_t count, std::uint32_t * previous);
    virtual bool unlock();

    /// The answer of the last `lock`, taken back by `unlock`.
    virtual bool is_locked();

private:
    sync_obj & guarded_;
    bool locked_ = false;
};

static_assert(sizeof(single_lock) == 3 * sizeof(void *));

} // namespace zel
