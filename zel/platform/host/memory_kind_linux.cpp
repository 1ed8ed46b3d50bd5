// SPDX-License-Identifier: MIT
#include "zel/platform/host/memory_kind.h"

#include <cstddef>
#include <cstdint>

#include <dlfcn.h>
#include <pthread.h>

namespace zel::platform {

memory_kind memory_kind_of(void const * address) noexcept
{
    pthread_attr_t facts;
    if (::pthread_getattr_np(::pthread_self(), &facts) == 0) {
        void * lowest = nullptr;
        std::size_t size = 0;
        ::pthread_attr_getstack(&facts, &lowest, &size);
        ::pthread_attr_destroy(&facts);
        if (reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(lowest)
            < size) {
            return memory_kind::own_stack;
        }
    }
    Dl_info found;
    return ::dladdr(address, &found) != 0 ? memory_kind::module : memory_kind::other;
}

} // namespace zel::platform
