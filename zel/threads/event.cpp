// SPDX-License-Identifier: MIT
#include "zel/threads/event.h"

#include "zel/platform/kernel_objects.h"
#include "zel/threads/handle_wait.h"

namespace zel {
namespace {

void * checked(void * handle)
{
    if (handle == nullptr) {
        throw sync_obj::exception(sync_obj::exception::failed_to_create, "event::event()");
    }
    return handle;
}

} // namespace

event::event(bool initially_set, bool manual_reset, char const * name)
    : kernel_obj(name == nullptr ? "" : name)
{
    // The platform takes the two flags in the other order.
    handle = checked(platform::create_event(manual_reset, initially_set, get_name().c_str()));
}

event::event(std::uint32_t desired_access, bool inherit_handle, char const * name)
{
    handle = checked(platform::open_event(desired_access, inherit_handle, name));
}

event::~event() = default;

bool event::lock(std::uint32_t timeout)
{
    require_handle(handle);
    return wait_for_handle(handle, timeout);
}

bool event::unlock() { return true; }

bool event::set() noexcept { return platform::set_event(handle); }

bool event::pulse() noexcept { return platform::pulse_event(handle); }

bool event::reset() noexcept { return platform::reset_event(handle); }

} // namespace zel
