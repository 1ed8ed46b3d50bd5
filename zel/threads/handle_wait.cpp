// SPDX-License-Identifier: MIT
#include "zel/threads/handle_wait.h"

#include "zel/platform/kernel_objects.h"
#include "zel/threads/kernel_obj.h"

namespace zel {

void require_handle(void * handle)
{
    if (handle == nullptr) [[unlikely]] {
        throw kernel_obj::exception(kernel_obj::exception::invalid_handle, "");
    }
}

bool wait_for_handle(void * handle, std::uint32_t timeout) noexcept
{
    std::uint32_t const result = platform::wait_for_single_object(handle, timeout);
    return result != platform::wait_abandoned && result != platform::wait_timeout;
}

} // namespace zel
