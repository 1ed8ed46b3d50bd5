// SPDX-License-Identifier: MIT
#include "zel/threads/lockable.h"

#include "zel/threads/crit_sect.h"
#include "zel/threads/mutex.h"

namespace zel {
namespace {

constexpr std::uint32_t no_limit = 0xFFFFFFFF;

[[noreturn]] void fail(char const * where)
{
    throw sync_obj::exception(sync_obj::exception::failed_to_lock, where);
}

// Called after a lock that returned false: if the owner of a mutex has died, the caller owns the
// mutex nevertheless.
bool gave_back_abandoned(sync_obj & object)
{
    return dynamic_cast<mutex *>(&object) != nullptr && object.unlock();
}

} // namespace

void lockable::lock()
{
    if (!object_->lock(no_limit)) {
        gave_back_abandoned(*object_);
        fail("lockable::lock()");
    }
}

bool lockable::try_lock()
{
    if (auto * const section = dynamic_cast<crit_sect *>(object_)) {
        return section->try_lock(); // its lock() ignores the timeout
    }
    if (object_->lock(0)) {
        return true;
    }
    if (gave_back_abandoned(*object_)) {
        fail("lockable::try_lock()");
    }
    return false;
}

void lockable::unlock() { object_->unlock(); }

} // namespace zel
