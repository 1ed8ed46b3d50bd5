// SPDX-License-Identifier: MIT
#include "zel/threads/mutex.h"

#include "zel/platform/kernel_objects.h"
#include "zel/threads/handle_wait.h"

namespace zel {
namespace {

void * checked(void * handle)
{
    if (handle == nullptr) {
        throw sync_obj::exception(sync_obj::exception::failed_to_create, "mutex::mutex");
    }
    return handle;
}

} // namespace

mutex::mutex(bool initially_owned, string const & name)
    : kernel_obj(name)
{
    handle = checked(platform::create_mutex(initially_owned, get_name().c_str()));
}

mutex::mutex(std::uint32_t desired_access, bool inherit_handle, string const & name)
{
    handle = checked(platform::open_mutex(desired_access, inherit_handle, name.c_str()));
}

mutex::~mutex()
{
    if (handle != nullptr) {
        platform::release_mutex(handle); // fails when the thread has no hold
    }
}

bool mutex::lock(std::uint32_t timeout)
{
    require_handle(handle);
    return wait_for_handle(handle, timeout);
}

bool mutex::unlock()
{
    require_handle(handle);
    return platform::release_mutex(handle);
}

} // namespace zel
