// SPDX-License-Identifier: MIT
#pragma once

#include "zel/base/api.h"
#include "zel/threads/sync_obj.h"
#include <cstdint>

namespace zel {

/// Holds a lock until the end of a block.
///
/// It stores the result of the last `lock`, and unlocks once in its destructor. The lock has to
/// outlive it. Use a guard in one thread only. Exceptions of the lock pass through.
/// \code
///     zel::single_lock held(guard);
///     zel::single_lock maybe(other, false);
///     if (maybe.lock(100)) { ... }
/// \endcode
class ZEL_API single_lock {
public:
    /// \param lock_now  true waits for the lock, without a limit.
    single_lock(sync_obj & guarded, bool lock_now = true);

    /// A copy also counts as holding the lock, so both objects would unlock it.
    single_lock(single_lock const & other) = default;
    single_lock & operator=(single_lock const &) = delete;
    virtual ~single_lock();

    /// Locks the object, whether or not it is held already, and stores the result: a result of
    /// false forgets an earlier hold.
    /// \param timeout  milliseconds; 0 only tests, 0xFFFFFFFF has no limit.
    virtual bool lock(std::uint32_t timeout);

    /// Unlocks the object if it is held, by `sync_obj::unlock(count, previous)`.
    /// \returns true if nothing is held now; after a failed release the guard still counts as
    ///          locked.
    virtual bool unlock(std::int32_t count, std::uint32_t * previous);
    virtual bool unlock();

    /// The result of the last `lock`; false after `unlock`.
    virtual bool is_locked();

private:
    sync_obj & guarded_;
    bool locked_ = false;
};

static_assert(sizeof(single_lock) == 3 * sizeof(void *));

} // namespace zel
