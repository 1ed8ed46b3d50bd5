// SPDX-License-Identifier: MIT
#include "zel/threads/single_lock.h"

namespace zel {

single_lock::single_lock(sync_obj & guarded, bool lock_now)
    : guarded_(guarded)
{
    if (lock_now) {
        single_lock::lock(0xFFFFFFFF);
    }
}

single_lock::~single_lock()
{
    try {
        single_lock::unlock();
    } catch (...) {
        // A destructor can't report that the release failed.
    }
}

bool single_lock::lock(std::uint32_t timeout)
{
    locked_ = guarded_.lock(timeout);
    return locked_;
}

bool single_lock::unlock(std::int32_t count, std::uint32_t * previous)
{
    if (locked_) {
        locked_ = !guarded_.unlock(static_cast<std::uint32_t>(count), previous);
    }
    return !locked_;
}

bool single_lock::unlock()
{
    if (locked_) {
        locked_ = !guarded_.unlock();
    }
    return !locked_;
}

bool single_lock::is_locked() { return locked_; }

} // namespace zel
