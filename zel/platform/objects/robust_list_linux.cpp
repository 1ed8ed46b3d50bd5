// SPDX-License-Identifier: MIT
#include "zel/platform/objects/robust_list_linux.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/last_error.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace zel::platform {

static_assert(sizeof(robust_list) == sizeof(robust_list_head));
static_assert(waiters_flag == FUTEX_WAITERS && owner_died == FUTEX_OWNER_DIED
              && thread_mask == FUTEX_TID_MASK);

constinit thread_local robust_list * robust_list::own_ = nullptr;

robust_list * robust_list::find() noexcept
{
    // After a fork, the child has the list of the forking thread at the same address, empty.
    robust_list * list = nullptr;
    std::size_t size = 0;
    if (::syscall(SYS_get_robust_list, 0, &list, &size) != 0 || list == nullptr
        || size != sizeof(robust_list)
        || list->offset_
            != -static_cast<std::int64_t>(robust_word_distance + offsetof(robust_node, next))) {
        set_last_error(error_no_system_resources, "the host keeps no list of a thread's locks");
        return nullptr;
    }
    own_ = list;
    return list;
}

} // namespace zel::platform
