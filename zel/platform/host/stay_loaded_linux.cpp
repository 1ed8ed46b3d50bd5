// SPDX-License-Identifier: MIT
#include "zel/platform/host/stay_loaded.h"

#include <dlfcn.h>
#include <link.h>

namespace zel::platform {

void stay_loaded() noexcept
{
    // Use the loader's own name of the module: the one in Dl_info may be relative to another
    // folder.
    Dl_info info{};
    void * module = nullptr;
    if (::dladdr1(reinterpret_cast<void *>(&stay_loaded), &info, &module, RTLD_DL_LINKMAP) == 0
        || module == nullptr) {
        return;
    }
    char const * const name = static_cast<link_map *>(module)->l_name;
    if (name != nullptr && *name != '\0') { // an empty name is the program itself
        ::dlopen(name, RTLD_LAZY | RTLD_NOLOAD | RTLD_NODELETE);
    }
}

} // namespace zel::platform
