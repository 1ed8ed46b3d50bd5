// SPDX-License-Identifier: MIT
#include "zel/threads/semaphore.h"

#include "zel/platform/kernel_objects.h"
#include "zel/platform/objects/unnamed_objects.h"
#include "zel/threads/handle_wait.h"

namespace zel {
namespace {

void * checked(void * handle)
{
    if (handle == nullptr) {
        throw sync_obj::exception(sync_obj::exception::failed_to_create, "semaphore::semaphore");
    }
    return handle;
}

} // namespace

semaphore::semaphore(std::int32_t initial, std::int32_t maximum, string const & name)
    : kernel_obj(name)
{
    handle = checked(platform::create_semaphore(initial, maximum, get_name().c_str()));
}

semaphore::semaphore(std::uint32_t desired_access, bool inherit_handle, string const & name)
{
    handle = checked(platform::open_semaphore(desired_access, inherit_handle, name.c_str()));
}

semaphore::~semaphore() = default;

bool semaphore::lock(std::uint32_t timeout)
{
    require_handle(handle);
    return wait_for_handle(handle, timeout);
}

bool semaphore::unlock() { return unlock(std::int32_t{1}, static_cast<std::int32_t *>(nullptr)); }

bool semaphore::unlock(std::int32_t count, std::int32_t * previous)
{
    require_handle(handle);
    // One unit and no waiter: the fast path, which the compiler folds into `unlock()`.
    if (count == 1 && previous == nullptr && platform::put_down_one(handle)) {
        return true;
    }
    return platform::release_semaphore(handle, count, previous);
}

} // namespace zel
