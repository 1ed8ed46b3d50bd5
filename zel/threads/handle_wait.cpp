// SPDX-License-Identifier: MIT
#include "zel/threads/handle_wait.h"

#include "zel/threads/kernel_obj.h"

namespace zel {

void refuse_null_handle()
{
    throw kernel_obj::exception(kernel_obj::exception::invalid_handle, "");
}

} // namespace zel
