// SPDX-License-Identifier: MIT
#include "zel/platform/files/module_loader.h"

#include "zel/platform/host/failure.h"
#include "zel/platform/paths/host_path.h"
#include "zel/platform/paths/max_path.h"
#include "zel/platform/paths/path_parts.h"
#include <cstring>
#include <string_view>

#include <dlfcn.h>

namespace zel::platform {
namespace {

void keep_reason(std::uint32_t code) noexcept
{
    char const * const reason = ::dlerror();
    set_last_error(code, reason == nullptr ? std::string_view() : std::string_view(reason));
}

} // namespace

void * load_library(char const * name) noexcept
{
    char host[max_path];
    if (std::strchr(name, '\\') != nullptr || path_get_drive_number(name) >= 0) {
        if (!to_host_path(host, name)) {
            return fail_with_null(error_mod_not_found);
        }
        name = host;
    }
    if (*name == '\0') { // dlopen would return the program itself
        return fail_with_null(error_mod_not_found);
    }
    void * const module = ::dlopen(name, RTLD_LAZY | RTLD_LOCAL);
    if (module == nullptr) {
        keep_reason(error_mod_not_found);
    }
    return module;
}

void * get_proc_address(void * module, char const * name) noexcept
{
    ::dlerror(); // discard an older reason
    void * const address = ::dlsym(module, name);
    if (address == nullptr) {
        keep_reason(error_proc_not_found);
    }
    return address;
}

bool free_library(void * module) noexcept
{
    if (::dlclose(module) == 0) {
        return true;
    }
    keep_reason(error_invalid_handle);
    return false;
}

} // namespace zel::platform
